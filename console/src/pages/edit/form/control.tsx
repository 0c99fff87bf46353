import {useSignal} from '@preact/signals';
import type {TargetedInputEvent} from 'preact';
import {texts} from '../../../texts';
import {choicesOf, kindOf, plain, type Schema} from './schema';

interface ControlProps {
  id: string;
  name: string;
  schema: Schema;
  value: unknown;
  isDisabled: boolean;
  isFaulty: boolean;
  describedBy: string;
  /** The id of a list of suggestions. */
  suggestions?: string | undefined;
  onChange(value: unknown): void;
}

const yes = new Set(['1', 'true', 'yes', 'on']);

/** The text as the document has it: a number where one is meant and its text stays the same, nothing for an empty text. */
function fromText(text: string, isNumber: boolean): unknown {
  if (text === '') return undefined;
  const number = Number(text);
  return isNumber && String(number) === text ? number : text;
}

const toText = (value: unknown) => (value === null || value === undefined ? '' : String(value));

function Choice({props, attributes}: {props: ControlProps; attributes: object}) {
  const isFlag = kindOf(props.schema, props.name) === 'flag';
  const options = isFlag ? ['yes', 'no'] : choicesOf(props.schema);
  const text = toText(props.value);
  const value = isFlag && text ? (yes.has(text) ? 'yes' : 'no') : text;
  const take = (chosen: string) => props.onChange(chosen === '' ? undefined : isFlag ? chosen === 'yes' : chosen);
  return (
    <select {...attributes} value={value} onChange={(event) => take(event.currentTarget.value)}>
      <option value="">{props.schema['x-default'] ? texts.form.byDefault(plain(props.schema['x-default'])) : ''}</option>
      {options.map((option) => (
        <option key={option} value={option}>
          {isFlag ? texts.form.flags[option as 'yes' | 'no'] : option}
        </option>
      ))}
    </select>
  );
}

function Secret({props, attributes}: {props: ControlProps; attributes: object}) {
  const isShown = useSignal(false);
  const common = {
    ...attributes,
    autocomplete: 'new-password',
    value: toText(props.value),
    onInput: (event: TargetedInputEvent<HTMLInputElement>) => props.onChange(fromText(event.currentTarget.value, false)),
  };
  return (
    <span class="secret">
      {isShown.value ? <input {...common} type="text" /> : <input {...common} type="password" />}
      <button
        type="button"
        aria-pressed={isShown.value}
        aria-label={texts.form.showOf(props.schema.title ?? props.name)}
        onClick={() => (isShown.value = !isShown.value)}
      >
        {texts.form.show}
      </button>
    </span>
  );
}

/** Texts with commas between them; what is typed stays as it is until the field is left. */
function TextList({props, attributes}: {props: ControlProps; attributes: object}) {
  const typed = useSignal<string | null>(null);
  const read = (text: string) => {
    const items = text.split(',').map((item) => item.trim());
    const filled = items.filter((item) => item !== '');
    props.onChange(filled.length ? filled : undefined);
  };
  return (
    <input
      {...attributes}
      value={typed.value ?? (Array.isArray(props.value) ? props.value.join(', ') : toText(props.value))}
      onInput={(event) => {
        typed.value = event.currentTarget.value;
        read(event.currentTarget.value);
      }}
      onBlur={() => (typed.value = null)}
    />
  );
}

/** What holds without a value; where nothing does, an example. */
function placeholderOf(schema: Schema): string {
  const standard = schema['x-default'];
  if (standard !== undefined) return plain(standard);
  const [example] = schema.examples ?? [];
  return example === undefined ? '' : texts.form.example(String(example));
}

/** What a member is edited with, by its schema. */
export function Control(props: ControlProps) {
  const {id, name, schema, value, isDisabled, isFaulty, describedBy, onChange} = props;
  const kind = kindOf(schema, name);
  const attributes = {
    id,
    disabled: isDisabled,
    'aria-invalid': isFaulty,
    'aria-describedby': describedBy,
    placeholder: placeholderOf(schema),
    spellcheck: false,
  };
  if (kind === 'flag' || kind === 'choice') return <Choice props={props} attributes={attributes} />;
  if (kind === 'secret') return <Secret props={props} attributes={attributes} />;
  if (kind === 'list') return <TextList props={props} attributes={attributes} />;
  if (value !== null && typeof value === 'object') return <input {...attributes} readOnly value={JSON.stringify(value)} />;
  const take = (text: string) => onChange(fromText(text, kind === 'number'));
  if (kind === 'long')
    return <textarea {...attributes} rows={2} value={toText(value)} onInput={(event) => take(event.currentTarget.value)} />;
  return (
    <input
      {...attributes}
      inputMode={kind === 'number' ? 'decimal' : undefined}
      list={props.suggestions}
      autocomplete="off"
      value={toText(value)}
      onInput={(event) => take(event.currentTarget.value)}
    />
  );
}
