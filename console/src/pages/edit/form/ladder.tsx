import {texts} from '../../../texts';
import type {Document} from '../document';
import {Control} from './control';
import {useForm, useMember} from './context';
import {controlId, Findings} from './field';
import {numbered, type Path, withValue} from './paths';
import {memberOf, numberedOf, type Schema} from './schema';

const path = ['video', 'renditions'];
const usual = ['width', 'height', 'bitrate', 'audio_bitrate'];

function Cell({path: at, schema}: {path: Path; schema: Schema}) {
  const member = useMember(at);
  const id = controlId(member.key);
  return (
    <td>
      <label class="offscreen" for={id}>
        {texts.form.cell(Number(at.at(-2)), schema.title ?? '')}
      </label>
      <Control
        id={id}
        name={at.at(-1) ?? ''}
        schema={{...schema, 'x-default': texts.form.asVideo}}
        value={member.value}
        isDisabled={member.profile !== null}
        isFaulty={member.findings.length > 0}
        describedBy={`${id}-hint`}
        onChange={member.set}
      />
      <Findings id={`${id}-hint`} findings={member.findings} />
    </td>
  );
}

interface TableProps {
  renditions: Document[];
  schema: Schema;
  isDisabled: boolean;
  store(renditions: Document[]): void;
}

function Table({renditions, schema, isDisabled, store}: TableProps) {
  const others = Object.keys(schema.properties ?? {}).filter((name) => !usual.includes(name));
  const columns = [...usual, ...others.filter((name) => renditions.some((rendition) => name in rendition))];
  return (
    <div class="scroll">
      <table class="ladder">
        <thead>
          <tr>
            <th scope="col">#</th>
            {columns.map((name) => (
              <th scope="col" key={name}>
                {memberOf(schema, name).title} <span class="unit">{memberOf(schema, name)['x-unit']}</span>
              </th>
            ))}
            <td />
          </tr>
        </thead>
        <tbody>
          {renditions.map((_, index) => (
            <tr key={index}>
              <th scope="row">{index}</th>
              {columns.map((name) => (
                <Cell key={name} path={[...path, String(index), name]} schema={memberOf(schema, name)} />
              ))}
              <td>
                <button
                  type="button"
                  disabled={isDisabled}
                  aria-label={texts.form.removeRendition(index)}
                  onClick={() => store(renditions.filter((__, other) => other !== index))}
                >
                  {texts.form.remove}
                </button>
              </td>
            </tr>
          ))}
        </tbody>
      </table>
    </div>
  );
}

/** The adaptive ladder as a table: a row per rendition, and the columns that most need or that one sets. */
export function Ladder({schema}: {schema: Schema}) {
  const {document, change} = useForm();
  const member = useMember(path);
  const renditions = numbered(member.value).map(([, rendition]) => rendition);
  const store = (members: Document[]) =>
    change(withValue(document, path, members.length ? Object.fromEntries(members.entries()) : undefined));
  const isDisabled = member.profile !== null;
  return (
    <div class="group">
      <h3>{schema.title}</h3>
      <p class="quiet">{texts.form.ladderHint}</p>
      {renditions.length > 0 && (
        <Table renditions={renditions} schema={numberedOf(schema)} isDisabled={isDisabled} store={store} />
      )}
      <Findings findings={member.findings} />
      <button type="button" disabled={isDisabled} onClick={() => store([...renditions, {}])}>
        {texts.form.addRendition}
      </button>
    </div>
  );
}
