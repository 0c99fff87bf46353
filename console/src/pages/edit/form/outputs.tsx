import {texts} from '../../../texts';
import type {Document} from '../document';
import {useForm} from './context';
import {controlId, Findings} from './field';
import {Fields} from './fields';
import {isMapping, numbered, withValue} from './paths';
import {memberOf, numberedOf, type Schema} from './schema';

const protocolOf = (branch: Schema) => String(memberOf(branch, 'protocol').const ?? '');

/** What the protocols have in common stays when another one is chosen. */
function withProtocol(output: Document, branch: Schema): Document {
  const kept = Object.entries(output).filter(([name]) => branch.properties?.[name]);
  return {...Object.fromEntries(kept), protocol: protocolOf(branch)};
}

/** What an output needs, in the order of an address. */
const addressOrder = ['hostname', 'server', 'port', 'app', 'path', 'playpath', 'playlist_name', 'filename'];

const newHls: Document = {protocol: 'hls', playlist_name: 'index.m3u8'};

function OutputCard({name, output, branches}: {name: string; output: Document; branches: Schema[]}) {
  const {document, change, findings} = useForm();
  const path = ['output', name];
  const branch = branches.find((candidate) => protocolOf(candidate) === output.protocol);
  const possible = branches.filter((candidate) => protocolOf(candidate) !== 'hls' || name === '0');
  const required = addressOrder.filter((member) => branch?.required?.includes(member));
  const id = controlId(`output.${name}.protocol`);
  const own = findings.filter(({key}) => key === `output.${name}.protocol` || key === `output.${name}`);
  return (
    <li class="card">
      <div class="card-head">
        <h3>{texts.form.output(Number(name))}</h3>
        <label class="offscreen" for={id}>
          {texts.form.protocol(Number(name))}
        </label>
        <select
          id={id}
          value={branch ? protocolOf(branch) : ''}
          onChange={(event) => {
            const chosen = branches.find((candidate) => protocolOf(candidate) === event.currentTarget.value);
            if (chosen) change(withValue(document, path, withProtocol(output, chosen)));
          }}
        >
          {!branch && <option value="">{texts.form.choose}</option>}
          {possible.map((candidate) => (
            <option key={protocolOf(candidate)} value={protocolOf(candidate)}>
              {texts.form.protocols[protocolOf(candidate)] ?? protocolOf(candidate)}
            </option>
          ))}
        </select>
        <button
          type="button"
          aria-label={texts.form.removeOutput(Number(name))}
          onClick={() => change(withValue(document, path, undefined))}
        >
          {texts.form.remove}
        </button>
      </div>
      <Findings findings={own} />
      {branch && (
        <Fields
          key={protocolOf(branch)}
          path={path}
          schema={branch}
          first={required}
          wide={['playlist_name', 'filename']}
          without={['protocol']}
        />
      )}
    </li>
  );
}

/** Where the stream goes: each output with just its protocol's fields. The numbers of the others stay when one is removed. */
export function Outputs({schema}: {schema: Schema}) {
  const {document, change} = useForm();
  const outputs = numbered(document.output);
  const branches = numberedOf(schema).oneOf ?? [];
  const add = () => {
    const mapping = isMapping(document.output) ? document.output : {};
    const last = Math.max(-1, ...outputs.map(([name]) => Number(name)));
    const isFirst = !mapping[0];
    change({...document, output: {...mapping, [isFirst ? 0 : last + 1]: isFirst ? newHls : {protocol: 'rtmp'}}});
  };
  return (
    <section class="panel">
      <h2>{schema.title}</h2>
      <ul class="cards">
        {outputs.map(([name, output]) => (
          <OutputCard key={name} name={name} output={output} branches={branches} />
        ))}
      </ul>
      <button type="button" onClick={add}>
        {texts.form.addOutput}
      </button>
    </section>
  );
}
