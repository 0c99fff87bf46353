import {mayOperate} from '../../state/session';
import {texts} from '../../texts';

const example = () => `curl -X POST ${window.location.origin}/api/streams -H 'Content-Type: application/json' -d '{
  "label": "News",
  "input.0.url": "udp://239.0.0.1:1234",
  "output.0.protocol": "hls", "output.0.playlist_name": "index.m3u8"}'`;

export function EmptyServer() {
  return (
    <section class="panel empty">
      <h1>{texts.list.empty}</h1>
      {mayOperate.value && (
        <>
          <p>{texts.list.emptyHint}</p>
          <pre>{example()}</pre>
        </>
      )}
    </section>
  );
}
