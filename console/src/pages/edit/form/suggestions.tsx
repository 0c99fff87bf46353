import {encoders} from '../../../state/encoders';
import type {Path} from './paths';

const media = ['video', 'audio', 'subtitle'] as const;
const idOf = (kind: string) => `encoders-${kind}`;

/** The id of the list that suggests values of a member; undefined where there is none. */
export function suggestionsOf(path: Path): string | undefined {
  const [section, name, ...more] = path;
  return name === 'codec' && more.length === 0 && section ? idOf(section) : undefined;
}

/** Stands once in a form: what may be typed into its fields of codecs. */
export function Suggestions() {
  return (
    <>
      {media.map((kind) => (
        <datalist key={kind} id={idOf(kind)}>
          <option value="copy" />
          <option value="none" />
          {encoders.value
            .filter((encoder) => encoder.media === kind)
            .map(({name, description}) => (
              <option key={name} value={name}>
                {description}
              </option>
            ))}
        </datalist>
      ))}
    </>
  );
}
