import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {describeEncoding} from '../../state/format';
import {loadProfiles, type Profile} from '../../state/profiles';
import {mayOperate} from '../../state/session';
import {texts} from '../../texts';

function Row({profile}: {profile: Profile}) {
  return (
    <tr>
      <td>
        <a href={`/profiles/${profile.id}`} data-page>
          {profile.name}
        </a>{' '}
        {profile.draft && <span class="badge own">{texts.profiles.isDraft}</span>}
      </td>
      <td>{describeEncoding(profile.video)}</td>
      <td>{describeEncoding(profile.audio)}</td>
      <td>
        <a href={`/?profile=${profile.id}`} data-page>
          {texts.profiles.streams(profile.users.length)}
        </a>
      </td>
    </tr>
  );
}

/** All profiles: what they set, and how many streams have them. */
export function ProfilesPage() {
  const profiles = useSignal<Profile[] | null>(null);
  const failure = useSignal('');
  useEffect(() => {
    document.title = `${texts.profiles.title} – ${texts.brand}`;
    loadProfiles().then((read) => (profiles.value = read), (error: Error) => (failure.value = error.message));
  }, [profiles, failure]);
  return (
    <article class="administration">
      <h1>{texts.profiles.title}</h1>
      <section class="panel">
        <p class="quiet">{texts.profiles.hint}</p>
        <p class="failure" role="alert">
          {failure}
        </p>
        {profiles.value?.length === 0 && <p>{texts.profiles.none}</p>}
        <div class="scroll">
          <table class="many">
            <thead>
              <tr>
                {texts.profiles.columns.map((name) => (
                  <th scope="col" key={name}>
                    {name}
                  </th>
                ))}
              </tr>
            </thead>
            <tbody>
              {profiles.value?.map((profile) => (
                <Row key={profile.id} profile={profile} />
              ))}
            </tbody>
          </table>
        </div>
        {mayOperate.value && (
          <a class="button" href="/profiles/new" data-page>
            {texts.profiles.add}
          </a>
        )}
      </section>
    </article>
  );
}
