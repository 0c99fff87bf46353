import type {MediaStream} from '../api/types';

/** Figures as people read them; "–" where one is not known. */

export const unknown = '–';

export function formatNumber(value: number | null | undefined, digits = 0, unit = ''): string {
  if (value === null || value === undefined || Number.isNaN(value)) return unknown;
  return value.toFixed(digits) + (unit && `\u202f${unit}`);
}

/** `kilobits` in kbit/s. */
export function formatBitrate(kilobits: number | null | undefined): string {
  if (!kilobits) return unknown;
  return kilobits >= 1000 ? formatNumber(kilobits / 1000, 2, 'Mbit/s') : formatNumber(kilobits, 0, 'kbit/s');
}

/** In MiB, GiB or TiB. */
export function formatBytes(bytes: number | null | undefined): string {
  if (bytes === null || bytes === undefined) return unknown;
  const mebibytes = bytes / 2 ** 20;
  if (mebibytes < 1024) return formatNumber(mebibytes, 0, 'MiB');
  const gibibytes = mebibytes / 1024;
  return gibibytes < 1024 ? formatNumber(gibibytes, 1, 'GiB') : formatNumber(gibibytes / 1024, 2, 'TiB');
}

/** The two largest units: "3 d 4 h". */
export function formatSeconds(seconds: number): string {
  const whole = Math.max(0, Math.round(seconds));
  if (whole < 60) return `${whole} s`;
  const minutes = Math.floor(whole / 60);
  if (minutes < 60) return whole % 60 ? `${minutes} min ${whole % 60} s` : `${minutes} min`;
  const hours = Math.floor(minutes / 60);
  if (hours < 24) return minutes % 60 ? `${hours} h ${minutes % 60} min` : `${hours} h`;
  return hours % 24 ? `${Math.floor(hours / 24)} d ${hours % 24} h` : `${Math.floor(hours / 24)} d`;
}

/** The time since, at `now` in milliseconds. */
export function formatSince(time: string | null | undefined, now: number): string {
  return time ? formatSeconds((now - Date.parse(time)) / 1000) : unknown;
}

/** In the browser's time zone. */
export function formatTime(time: string): string {
  const date = new Date(time);
  const isToday = date.toDateString() === new Date().toDateString();
  const clock = date.toLocaleTimeString('en-GB');
  return isToday ? clock : `${date.toLocaleDateString('en-CA')} ${clock}`;
}

/** "h264, 1280×720, 25 fps" */
export function describeMedia(media: MediaStream): string {
  const parts = [
    media.codec,
    media.width && media.height ? `${media.width}×${media.height}` : null,
    media.fps ? `${media.fps} fps` : null,
    media.sample_rate ? `${media.sample_rate} Hz` : null,
    media.channels,
    media.bitrate ? formatBitrate(media.bitrate) : null,
  ];
  return parts.filter((part) => part).join(', ');
}

/** What a profile says of picture or sound: "libx264, 720p, 2.80 Mbit/s". */
export function describeEncoding(section: unknown): string {
  const {codec, height, renditions, bitrate} = (section ?? {}) as Record<string, unknown>;
  const heights = Object.values((renditions ?? {}) as Record<string, {height?: unknown}>).map((one) => one?.height);
  const sizes = heights.length ? heights : [height];
  const picture = sizes.filter((size) => size).map((size) => `${size}p`);
  const parts = [codec, picture.join('/'), bitrate && formatBitrate(Number(bitrate))];
  return parts.filter((part) => part).join(', ') || unknown;
}
