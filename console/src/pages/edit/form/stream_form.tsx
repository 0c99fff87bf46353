import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import type {Finding} from '../../../api/types';
import {type Times, Timetable} from '../../../parts/timetable';
import {loadEncoders} from '../../../state/encoders';
import {texts} from '../../../texts';
import type {Document} from '../document';
import type {Preview} from '../preview';
import {type ChosenProfile, FormProvider, useForm} from './context';
import {Field} from './field';
import {Fields} from './fields';
import {Inputs} from './inputs';
import {Encoding} from './encoding';
import {Outputs} from './outputs';
import {isMapping, valueAt, withValue} from './paths';
import {ProfileField} from './profile_field';
import {loadProfiles, type Profile} from '../../../state/profiles';
import {Suggestions} from './suggestions';
import {loadSchema, memberOf, type Schema} from './schema';

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

function TimesOf({name, schema}: {name: 'restart' | 'switch'; schema: Schema}) {
  const {document, change, timetable} = useForm();
  const path = ['input', name];
  const value = valueAt(document, path);
  const set = (times: Times) => {
    const given = Object.entries(times).filter(([, text]) => text !== '');
    change(withValue(document, path, given.length ? Object.fromEntries(given) : undefined));
  };
  return (
    <div class="group">
      <h3>{schema.title}</h3>
      <p class="quiet">{schema.description}</p>
      <Timetable
        name={schema.title ?? name}
        value={isMapping(value) ? value : {}}
        next={timetable?.[name] ?? []}
        onChange={set}
      />
      <Fields path={path} schema={schema} first={[]} more={texts.form.asText} opens={false} />
    </div>
  );
}

function Timetables({schema}: {schema: Schema}) {
  return (
    <section class="panel">
      <h2>{texts.form.times}</h2>
      {(['restart', 'switch'] as const).map((name) => (
        <TimesOf key={name} name={name} schema={memberOf(schema, name)} />
      ))}
    </section>
  );
}

const limits = ['min_speed', 'max_speed', 'max_sys_mem', 'max_gpu_mem'];

interface StreamFormProps {
  document: Document;
  findings: Finding[];
  timetable: Preview['timetable'];
  onChange(document: Document): void;
}

/** A stream's document as a form made of its schema. What the schema doesn't know stays in the document untouched. */
export function StreamForm({document, findings, timetable, onChange}: StreamFormProps) {
  const schema = useSignal<Schema | null>(null);
  const profiles = useSignal<Profile[]>([]);
  const failure = useSignal('');
  useEffect(() => {
    const tell = (error: Error) => (failure.value = error.message);
    loadSchema('stream').then((read) => (schema.value = read), tell);
    loadEncoders();
    loadProfiles().then((read) => (profiles.value = read), tell);
  }, [schema, profiles, failure]);
  const known = schema.value;
  if (!known) return <p class="notice">{failure.value || texts.loading}</p>;
  const chosen = profiles.value.find(({id}) => String(id) === String(document.profile ?? ''));
  const profile: ChosenProfile | null = chosen ? {name: chosen.name, document: chosen} : null;
  return (
    <FormProvider value={{document, change: onChange, findings, profile, timetable}}>
      <div class="form">
        <Suggestions />
        <p class="failure" role="alert">
          {failure}
        </p>
        <General schema={known} profiles={profiles.value} />
        <Inputs schema={memberOf(known, 'input')} />
        <Outputs schema={memberOf(known, 'output')} />
        <Encoding schema={known} />
        <Timetables schema={memberOf(known, 'input')} />
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
