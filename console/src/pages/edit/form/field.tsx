import type {Finding} from '../../../api/types';
import {texts} from '../../../texts';
import {Control} from './control';
import {useMember} from './context';
import type {Path} from './paths';
import {suggestionsOf} from './suggestions';
import {kindOf, plain, type Schema} from './schema';

/** The id of the control of the member that a finding names. */
export const controlId = (key: string) => `member-${key}`;

/** What the server found wrong with a member, and what the member means. */
export function Findings({id, findings, hint = ''}: {id?: string; findings: Finding[]; hint?: string}) {
  return (
    <div id={id}>
      {findings.map(({message}) => (
        <p key={message} class="failure">
          {message}
        </p>
      ))}
      {hint && <p class="quiet">{hint}</p>}
    </div>
  );
}

/** One member of the document: its control, what it means, and what the server found wrong with it. */
export function Field({path, schema, isWide = false}: {path: Path; schema: Schema; isWide?: boolean}) {
  const member = useMember(path);
  const id = controlId(member.key);
  const name = path.at(-1) ?? '';
  const isComplex = member.value !== null && typeof member.value === 'object' && kindOf(schema, name) !== 'list';
  const hint = isComplex ? texts.form.inJson : plain(schema.description ?? '');
  return (
    <div class={isWide ? 'field wide' : 'field'}>
      <label for={id}>
        {schema.title ?? name}
        {schema['x-unit'] && <span class="unit"> {schema['x-unit']}</span>}
        {member.profile && <span class="badge">{texts.form.ofProfile(member.profile.name)}</span>}
        {member.isOwn && <span class="badge own">{texts.form.own}</span>}
      </label>
      <Control
        id={id}
        name={name}
        schema={schema}
        value={member.value}
        isDisabled={member.profile !== null}
        isFaulty={member.findings.length > 0}
        describedBy={`${id}-hint`}
        suggestions={suggestionsOf(path)}
        onChange={member.set}
      />
      <Findings id={`${id}-hint`} findings={member.findings} hint={hint} />
    </div>
  );
}
