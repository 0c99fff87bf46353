import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import type {Finding} from '../../api/types';
import {loadEncoders} from '../../state/encoders';
import {texts} from '../../texts';
import type {Document} from '../edit/document';
import {FormProvider} from '../edit/form/context';
import {Encoding} from '../edit/form/encoding';
import {Field} from '../edit/form/field';
import {loadSchema, memberOf, type Schema} from '../edit/form/schema';
import {Suggestions} from '../edit/form/suggestions';

interface ProfileFormProps {
  document: Document;
  findings: Finding[];
  onChange(document: Document): void;
}

/** A profile as a form made of its schema. */
export function ProfileForm({document, findings, onChange}: ProfileFormProps) {
  const schema = useSignal<Schema | null>(null);
  const failure = useSignal('');
  useEffect(() => {
    loadEncoders();
    loadSchema('profile').then((read) => (schema.value = read), (error: Error) => (failure.value = error.message));
  }, [schema, failure]);
  const known = schema.value;
  if (!known) return <p class="notice">{failure.value || texts.loading}</p>;
  return (
    <FormProvider value={{document, change: onChange, findings, profile: null, timetable: undefined}}>
      <div class="form">
        <Suggestions />
        <section class="panel">
          <div class="fields-grid">
            <Field path={['name']} schema={memberOf(known, 'name')} />
          </div>
        </section>
        <Encoding schema={known} />
      </div>
    </FormProvider>
  );
}
