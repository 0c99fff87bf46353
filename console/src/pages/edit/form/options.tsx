import {useRef} from 'preact/hooks';
import {texts} from '../../../texts';
import {useForm, useMember} from './context';
import {Control} from './control';
import {controlId, Findings} from './field';
import {isMapping, type Path, valueAt, withValue} from './paths';
import {memberOf, type Schema} from './schema';

/** An option that is set; it stays in the form while its text is empty, until it is removed. */
function Option({path, schema}: {path: Path; schema: Schema}) {
  const member = useMember(path);
  const id = controlId(member.key);
  const name = path.at(-1) ?? '';
  return (
    <div class="field">
      <label for={id}>{name}</label>
      <span class="secret">
        <Control
          id={id}
          name={name}
          schema={schema}
          value={member.value}
          isDisabled={false}
          isFaulty={member.findings.length > 0}
          describedBy={`${id}-hint`}
          onChange={(value) => member.set(value ?? '')}
        />
        <button type="button" aria-label={texts.form.removeOption(name)} onClick={() => member.set(undefined)}>
          {texts.form.remove}
        </button>
      </span>
      <Findings id={`${id}-hint`} findings={member.findings} />
    </div>
  );
}

/** The reader's options of an input: those that are set, and a choice of the others. */
export function Options({path, schema}: {path: Path; schema: Schema}) {
  const {document, change, findings} = useForm();
  const options = valueAt(document, path);
  const set = isMapping(options) ? Object.keys(options) : [];
  const prefix = `${path.join('.')}.`;
  const isOpen = useRef(false);
  isOpen.current ||= set.length > 0 || findings.some(({key}) => key.startsWith(prefix));
  const known = Object.keys(schema.properties ?? {}).filter((name) => !set.includes(name));
  return (
    <details open={isOpen.current}>
      <summary>{texts.form.options}</summary>
      <div class="fields-grid">
        {set.map((name) => (
          <Option key={name} path={[...path, name]} schema={{...memberOf(schema, name), title: name}} />
        ))}
        <label class="field">
          {texts.form.addOption}
          <select
            value=""
            onChange={(event) => {
              change(withValue(document, [...path, event.currentTarget.value], ''));
              event.currentTarget.value = '';
            }}
          >
            <option value="">{texts.form.choose}</option>
            {known.map((name) => (
              <option key={name}>{name}</option>
            ))}
          </select>
        </label>
      </div>
    </details>
  );
}
