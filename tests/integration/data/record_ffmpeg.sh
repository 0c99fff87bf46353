#!/bin/sh
# Makes the recordings of FFmpeg's standard error in this folder again: NAME.txt without and NAME.color.txt with
# console colours. Sources are generated; nothing but the descriptions before the first progress line is kept. What is to
# be read from both is in NAME.json.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

make() { ffmpeg -hide_banner -nostdin -loglevel error -y "$@"; }
picture="testsrc2=size=640x360:rate=25:duration=2"
tone="sine=frequency=440:sample_rate=48000:duration=2"
h264="-c:v libx264 -preset ultrafast -b:v 800k -pix_fmt yuv420p"

make -f lavfi -i "$picture" -f lavfi -i "$tone" $h264 -c:a aac -b:a 96k -ac 2 source.ts
printf '1\n00:00:00,000 --> 00:00:01,500\nGood evening\n' > words.srt
make -f lavfi -i "$picture" -f lavfi -i "$tone" -f lavfi -i "$tone" -i words.srt -map 0 -map 1 -map 2 -map 3 \
  -c:v libx265 -preset ultrafast -x265-params log-level=error -pix_fmt yuv420p -c:a aac -b:a 96k -c:s srt \
  -metadata "title=Stream #0:7: Video: h264, yuv420p, 1x1, 9 kb/s, 99 fps" \
  -metadata:s:a:0 language=eng -metadata:s:a:1 language=ger -metadata:s:s:0 language=fre source.mkv
make -f lavfi -i "$tone" -c:a libmp3lame -b:a 128k -metadata title="Output #0, tee, to nowhere" source.mp3
make -f lavfi -i "$picture" -f lavfi -i "$tone" -c:v libvpx-vp9 -deadline realtime -b:v 500k -pix_fmt yuv420p \
  -c:a libopus -b:a 64k source.webm
make -f lavfi -i "$picture" -frames:v 3 -c:v mjpeg slide%d.jpg
make -f lavfi -i "$picture" -c:v mjpeg -an source.avi

record() {
  name=$1; shift
  for colour in no yes; do
    file=$here/$name.txt
    unset AV_LOG_FORCE_COLOR AV_LOG_FORCE_256COLOR AV_LOG_FORCE_NOCOLOR
    if [ $colour = yes ]; then
      file=$here/$name.color.txt
      export AV_LOG_FORCE_COLOR="" AV_LOG_FORCE_256COLOR=""
    fi
    ffmpeg -hide_banner -nostdin -stats -y "$@" 2>&1 < "${stdin:-/dev/null}" | tr '\r' '\n' | sed '/^.\{0,40\}frame=.*time=\|size=.*time=/,$d' \
      | grep -v '264 - core\|x265 \[' > "$file"
  done
}
encode="-preset veryfast -pix_fmt yuv420p -b:v 1200k -maxrate 1320k -bufsize 2400k -c:a aac -b:a 96k -ac 2 -map_metadata:g -1"
both='[f=mpegts:select=v\\:0,a\\:0]a.ts|[f=mpegts:select=v\\:1,a\\:0]b.ts'

record ts_copied -i source.ts -map '0:V:0?' -map '0:a:0?' -c copy -map_metadata:g -1 -f flv copy.flv
stdin=source.ts record ts_from_pipe_copied -f mpegts -i pipe:0 -map '0:V:0?' -map '0:a:0?' -c copy -f mpegts copy.ts
record mkv_two_languages -i source.mkv -map 0:V:0 -map 0:a -map 0:s -c:v libx264 $encode -c:s copy -f matroska out.mkv
record mp3_audio_only -i source.mp3 -map '0:V:0?' -map '0:a:0?' -c:a aac -b:a 96k -f mpegts out.ts
record webm_vp9 -i source.webm -map '0:V:0?' -map '0:a:0?' -c:v libx264 $encode -f mpegts out.ts
record slideshow -f image2 -framerate 5 -i slide%d.jpg -map '0:V:0?' -c:v libx264 $encode -f mpegts out.ts
record mjpeg_avi -i source.avi -map '0:V:0?' -c:v libx264 -crf 23 -f mpegts out.ts
record lavfi_ladder -f lavfi -i "testsrc2=size=1280x720:rate=30000/1001:duration=1[out0];sine=duration=1[out1]" \
  -filter_complex "[0:V:0]split=2[s0][s1];[s0]scale=1280:720[v0];[s1]scale=640:360[v1]" \
  -map '[v0]' -c:v:0 libx264 -b:v:0 1800k -maxrate:v:0 1980k -bufsize:v:0 3600k \
  -map '[v1]' -c:v:1 libx264 -b:v:1 500k -maxrate:v:1 550k -bufsize:v:1 1000k \
  -map '0:a:0?' -c:a aac -b:a 96k -ac 2 -preset veryfast -flags:v +global_header -f tee "$both"
