import {Fields} from './fields';
import {Ladder} from './ladder';
import {memberOf, type Schema} from './schema';

/** How picture, sound and subtitles are encoded; of a stream or a profile. */
export function Encoding({schema}: {schema: Schema}) {
  const video = memberOf(schema, 'video');
  const audio = memberOf(schema, 'audio');
  const subtitle = memberOf(schema, 'subtitle');
  const logo = memberOf(video, 'cvdelogo');
  return (
    <>
      <section class="panel">
        <h2>{video.title}</h2>
        <Fields path={['video']} schema={video} first={['codec', 'preset', 'bitrate', 'width', 'height', 'fps']} />
        <Fields path={['video', 'cvdelogo']} schema={logo} first={[]} more={logo.title ?? ''} />
        <Ladder schema={memberOf(video, 'renditions')} />
      </section>
      <section class="panel">
        <h2>{audio.title}</h2>
        <Fields path={['audio']} schema={audio} first={['codec', 'bitrate', 'channels']} />
      </section>
      <section class="panel">
        <h2>{subtitle.title}</h2>
        <Fields path={['subtitle']} schema={subtitle} first={['codec', 'map']} />
      </section>
    </>
  );
}
