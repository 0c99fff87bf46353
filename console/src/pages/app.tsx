import {signal} from '@preact/signals';
import type {ComponentChildren} from 'preact';
import {useEffect} from 'preact/hooks';
import {ApiError} from '../api/client';
import {Header} from '../parts/header';
import {path} from '../state/router';
import {identify, identity} from '../state/session';
import {followStreams, load} from '../state/streams';
import {texts} from '../texts';
import {AddManyPage} from './add_many/add_many_page';
import {EditPage} from './edit/edit_page';
import {ListPage} from './list/list_page';
import {LoginPage} from './login_page';
import {ProfilePage} from './profiles/profile_page';
import {ProfilesPage} from './profiles/profiles_page';
import {StreamPage} from './stream/stream_page';
import {SystemPage} from './system/system_page';
import {UsersPage} from './users/users_page';

const isKnown = signal(false);
const failure = signal('');

async function begin(): Promise<void> {
  try {
    await identify();
    failure.value = '';
    isKnown.value = true;
  } catch (error) {
    failure.value = error instanceof ApiError ? error.message : String(error);
    setTimeout(() => void begin(), 2000);
  }
}
void begin();

function Page() {
  const stream = /^\/streams\/(\d+)$/.exec(path.value);
  if (stream) return <StreamPage key={stream[1]} id={Number(stream[1])} />;
  const edited = /^\/streams\/(\d+)\/edit$/.exec(path.value);
  if (edited) return <EditPage key={edited[1]} id={Number(edited[1])} />;
  if (path.value === '/new') return <EditPage key="new" />;
  if (path.value === '/new/many') return <AddManyPage />;
  if (path.value === '/profiles') return <ProfilesPage />;
  if (path.value === '/profiles/new') return <ProfilePage key="new" />;
  const profile = /^\/profiles\/(\d+)$/.exec(path.value);
  if (profile) return <ProfilePage key={profile[1]} id={Number(profile[1])} />;
  if (path.value === '/system') return <SystemPage />;
  if (path.value === '/users') return <UsersPage />;
  if (path.value === '/') return <ListPage />;
  return <h1 class="notice">{texts.notFound}</h1>;
}

/** What only those see who may use the server. */
function Inside({children}: {children: ComponentChildren}) {
  useEffect(() => {
    void load().catch(() => {});
    return followStreams();
  }, []);
  return (
    <>
      <Header />
      <main id="content">{children}</main>
    </>
  );
}

export function App() {
  if (failure.value) return <p class="notice">{failure.value}</p>;
  if (!isKnown.value) return null;
  if (!identity.value) return <LoginPage />;
  return (
    <Inside>
      <Page />
    </Inside>
  );
}
