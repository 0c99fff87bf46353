import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import type {Encoder} from '../../api/types';
import {encoders, loadEncoders} from '../../state/encoders';
import {texts} from '../../texts';

const words = texts.system;

function Table({shown}: {shown: Encoder[]}) {
  return (
    <div class="scroll">
      <table class="many">
        <thead>
          <tr>
            {words.encoderColumns.map((name) => (
              <th scope="col" key={name}>
                {name}
              </th>
            ))}
          </tr>
        </thead>
        <tbody>
          {shown.map(({name, media, description}) => (
            <tr key={name}>
              <td>
                <code>{name}</code>
              </td>
              <td>{media}</td>
              <td>{description}</td>
            </tr>
          ))}
        </tbody>
      </table>
    </div>
  );
}

/** The encoders that FFmpeg has here, which a stream's codec may name. */
export function EncoderList() {
  const search = useSignal('');
  const media = useSignal('');
  useEffect(loadEncoders, []);
  const text = search.value.toLowerCase();
  const shown = encoders.value.filter(
    (encoder) =>
      (!media.value || encoder.media === media.value) &&
      `${encoder.name} ${encoder.description}`.toLowerCase().includes(text),
  );
  return (
    <section class="panel">
      <details>
        <summary>{encoders.value.length ? words.encoders(encoders.value.length) : words.encodersOpen}</summary>
        <div class="controls">
          <input
            type="search"
            placeholder={words.searchEncoders}
            aria-label={words.searchEncoders}
            value={search}
            onInput={(event) => (search.value = event.currentTarget.value)}
          />
          <label>
            {words.media}{' '}
            <select value={media} onChange={(event) => (media.value = event.currentTarget.value)}>
              {Object.entries(words.medias).map(([value, name]) => (
                <option key={value} value={value}>
                  {name}
                </option>
              ))}
            </select>
          </label>
          <span role="status">{words.shown(shown.length)}</span>
        </div>
        {encoders.value.length === 0 && <p>{words.noEncoders}</p>}
        {shown.length > 0 && <Table shown={shown} />}
      </details>
    </section>
  );
}
