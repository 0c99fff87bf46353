/** Names for what the API answers. */

import type {Answers, Cause, Disk, Entry, Findings, Kind, MediaStream, Role, Stream, System, User, Webhook} from './openapi';

export type {Cause, Disk, Entry, Kind, MediaStream, Role, System, User, Webhook};

/** A stream; what its document has as a label, as text. */
export type StreamRecord = Omit<Stream, 'label'> & {label: string | null};
export type Status = Stream['status'];
export type Output = Stream['outputs'][number];
export type Input = Stream['inputs'][number];

export type Finding = Findings[number];
export type Timeline = Answers['getTimeline'];
/** With all figures, as nobody asks for some. */
export type Series = Omit<Answers['getSeries'], 'series'> & {series: Record<SeriesName, (number | null)[]>};
export type Identity = Answers['getMe'];
export type Token = Answers['listTokens'][number];
export type Encoder = Answers['listEncoders'][number];

export type SeriesName = 'speed' | 'fps' | 'bitrate' | 'cpu' | 'memory' | 'viewers';

/** Figures of one stream in an event; those that changed since the latest one. */
export type Figures = {status?: Status | null} & {[name in SeriesName]?: number | null};
