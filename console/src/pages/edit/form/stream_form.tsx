import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import type {Finding} from '../../../api/types';
import {texts} from '../../../texts';
import type {Document} from '../document';
import {type ChosenProfile, FormProvider} from './context';
import {Field} from './field';
import {Fields} from './fields';
import {Inputs} from './inputs';
import {Ladder} from './ladder';
import {Outputs} from './outputs';
import {ProfileField} from './profile_field';
import {loadProfiles, type Profile} from './profiles';
import {loadStreamSchema, memberOf, type Schema} from './schema';

function General({schema, profiles}: {schema: Schema; profiles: Profile[]}) {
  return (
    <section class="panel">
      <div class="fields-grid">
        {['label', 'tags', 'access'].map((name) => (
          <Field key={name} path={[name]} schema={memberOf(schema, name)} />
        ))}
        <ProfileField schema={memberOf(schema, 'profile')} profiles={profiles} />
      </div>
    </section>
  );
}

/** How picture, sound and subtitles are encoded; of a stream or a profile. */
export function Encoding({schema}: {schema: Schema}) {
  const video = memberOf(schema, 'video');
  const audio = memberOf(schema, 'audio');
  const subtitle = memberOf(schema, 'subtitle');
  const logo = memberOf(video, 'cvdelogo');
  return (
    <>
      <section class="panel">
        <h2>{video.title}</h2>
        <Fields path={['video']} schema={video} first={['codec', 'preset', 'bitrate', 'width', 'height', 'fps']} />
        <Fields path={['video', 'cvdelogo']} schema={logo} first={[]} more={logo.title ?? ''} />
        <Ladder schema={memberOf(video, 'renditions')} />
      </section>
      <section class="panel">
        <h2>{audio.title}</h2>
        <Fields path={['audio']} schema={audio} first={['codec', 'bitrate', 'channels']} />
      </section>
      <section class="panel">
        <h2>{subtitle.title}</h2>
        <Fields path={['subtitle']} schema={subtitle} first={['codec', 'map']} />
      </section>
    </>
  );
}

function Times({schema}: {schema: Schema}) {
  return (
    <section class="panel">
      <h2>{texts.form.times}</h2>
      {['restart', 'switch'].map((name) => (
        <div key={name} class="group">
          <h3>{memberOf(schema, name).title}</h3>
          <p class="quiet">{memberOf(schema, name).description}</p>
          <Fields path={['input', name]} schema={memberOf(schema, name)} first={['weekdays', 'hours', 'minutes']} />
        </div>
      ))}
    </section>
  );
}

const limits = ['min_speed', 'max_speed', 'max_sys_mem', 'max_gpu_mem'];

interface StreamFormProps {
  document: Document;
  findings: Finding[];
  onChange(document: Document): void;
}

/** A stream's document as a form made of its schema. What the schema doesn't know stays in the document untouched. */
export function StreamForm({document, findings, onChange}: StreamFormProps) {
  const schema = useSignal<Schema | null>(null);
  const profiles = useSignal<Profile[]>([]);
  const failure = useSignal('');
  useEffect(() => {
    const tell = (error: Error) => (failure.value = error.message);
    loadStreamSchema().then((read) => (schema.value = read), tell);
    loadProfiles().then((read) => (profiles.value = read), tell);
  }, [schema, profiles, failure]);
  const known = schema.value;
  if (!known) return <p class="notice">{failure.value || texts.loading}</p>;
  const chosen = profiles.value.find(({id}) => String(id) === String(document.profile ?? ''));
  const profile: ChosenProfile | null = chosen ? {name: chosen.name, document: chosen} : null;
  return (
    <FormProvider value={{document, change: onChange, findings, profile}}>
      <div class="form">
        <p class="failure" role="alert">
          {failure}
        </p>
        <General schema={known} profiles={profiles.value} />
        <Inputs schema={memberOf(known, 'input')} />
        <Outputs schema={memberOf(known, 'output')} />
        <Encoding schema={known} />
        <Times schema={memberOf(known, 'input')} />
        <section class="panel">
          <h2>{texts.form.limits}</h2>
          <div class="fields-grid">
            {limits.map((name) => (
              <Field key={name} path={[name]} schema={memberOf(known, name)} />
            ))}
          </div>
        </section>
      </div>
    </FormProvider>
  );
}
