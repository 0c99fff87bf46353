import {useRef} from 'preact/hooks';
import {texts} from '../../../texts';
import {useHasFindings, useIsSet} from './context';
import {Field} from './field';
import type {Path} from './paths';
import {memberOf, type Schema} from './schema';

interface FieldsProps {
  path: Path;
  schema: Schema;
  /** Members that are seen at once, in this order; `wide` ones fill a row. */
  first: string[];
  wide?: string[];
  /** Members that are edited elsewhere. */
  without?: string[];
  /** What the others are. */
  more?: string;
  /** Whether the others are shown at once when one is set. */
  opens?: boolean;
}

const isGroup = (schema: Schema) => schema.properties !== undefined || schema.patternProperties !== undefined;

/** Fields for the members of a mapping: those that most need, and all others behind "More". */
export function Fields({path, schema, first, wide = [], without = [], more = texts.form.more, opens = true}: FieldsProps) {
  const left = Object.keys(schema.properties ?? {}).filter(
    (name) => !first.includes(name) && !without.includes(name) && !isGroup(memberOf(schema, name)),
  );
  const isFaulty = useHasFindings(path, left);
  const isSet = useIsSet(path, left);
  // Once open it stays so: the field that somebody types in must not vanish when it becomes empty or right.
  const isOpen = useRef(false);
  isOpen.current ||= isFaulty || (opens && isSet);
  const show = (names: string[]) => (
    <div class="fields-grid">
      {names.map((name) => (
        <Field key={name} path={[...path, name]} schema={memberOf(schema, name)} isWide={wide.includes(name)} />
      ))}
    </div>
  );
  return (
    <>
      {show(first.filter((name) => schema.properties?.[name]))}
      {left.length > 0 && (
        <details open={isOpen.current}>
          <summary>{more}</summary>
          {show(left)}
        </details>
      )}
    </>
  );
}
