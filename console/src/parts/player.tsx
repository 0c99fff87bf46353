import {useSignal} from '@preact/signals';
import {useEffect, useRef} from 'preact/hooks';
import {texts} from '../texts';

const bufferSeconds = 30;

/** Plays an HLS playlist of this server; the player is loaded when it is asked for. */
export function Player({playlist}: {playlist: string}) {
  const video = useRef<HTMLVideoElement>(null);
  const failure = useSignal('');
  useEffect(() => {
    let stop = () => {};
    let gone = false;
    void import('hls.js/light').then(({default: Hls}) => {
      if (gone || !video.current) return;
      const hls = new Hls({backBufferLength: bufferSeconds, maxBufferLength: bufferSeconds});
      hls.on(Hls.Events.ERROR, (_, data) => {
        if (data.fatal) failure.value = texts.stream.noPicture.failed(data.details);
        if (data.fatal) setTimeout(() => hls.loadSource(playlist), 3000);
      });
      hls.on(Hls.Events.FRAG_BUFFERED, () => {
        failure.value = '';
      });
      hls.loadSource(playlist);
      hls.attachMedia(video.current);
      void video.current.play().catch(() => {});
      stop = () => hls.destroy();
    });
    return () => {
      gone = true;
      stop();
    };
  }, [playlist, failure]);
  return (
    <div class="player">
      <video ref={video} muted playsInline controls />
      {failure.value && <p class="overlay">{failure}</p>}
    </div>
  );
}
