/** Records as the API answers them; only the members that the console reads. */

export type Status = 'starting' | 'running' | 'restarting' | 'stopped';
export type Role = 'viewer' | 'operator' | 'admin';

export interface LastEnd {
  time: string;
  cause: string;
  text: string;
  on_air_seconds: number | null;
}

export interface Cycle {
  number: number;
  state: Status | 'waiting';
  since: string | null;
  input: number | null;
  preferred: boolean | null;
  next_launch: number | null;
  last_end: LastEnd | null;
}

export interface Output {
  index: number;
  protocol: string;
  url?: string;
  state: string;
  since?: string;
  error?: string;
}

export interface Input {
  url: string;
  in_use: boolean;
  preferred: boolean;
  probe: {answers: boolean; time: string; reason: string | null} | null;
}

export interface MediaStream {
  type?: string;
  codec?: string;
  profile?: string;
  width?: number;
  height?: number;
  fps?: number;
  sample_rate?: number;
  channels?: string;
  bitrate?: number;
}

export interface Viewer {
  addr?: string;
  port?: string;
  time?: number;
}

export interface StreamRecord {
  id: number;
  label: string | null;
  status: Status | null;
  error?: string;
  speed: number;
  fps: number;
  time: number;
  url_info: {inputs: string[]; outputs: string[]; input_index: number | null};
  codec_info: {inputs: MediaStream[]; outputs: MediaStream[]};
  client_info: Record<string, {protocol: string; clients: Viewer[]}>;
  process_info: {cpu_percent?: number; mem_rss?: number};
  pending: string[];
  cycle: Cycle;
  measured: {speed: number | null; bitrate: number | null; seconds_without_progress: number | null};
  inputs: Input[];
  outputs: Output[];
  limits: {speed: {min: number | null; max: number | null} | null; memory_mib: number | null};
  timetable: {restart: string | null; switch: string | null};
  tags: string[];
  profile: number | null;
  history: {restarts: {hour: Record<string, number>; day: Record<string, number>}; on_air_percent: number | null};
  preview?: string;
}

export interface Entry {
  number: number;
  time: string;
  kind: string;
  cause?: string;
  stream?: number;
  label?: string;
  by?: string;
  count?: number;
  first?: string;
  description: string;
}

/** Figures of one stream; those that changed since the latest event. */
export interface Figures {
  status?: Status | null;
  speed?: number | null;
  fps?: number | null;
  bitrate?: number | null;
  cpu?: number | null;
  memory?: number | null;
  viewers?: number | null;
}

export interface Interval {
  from: string;
  to: string;
  status: string;
  input?: number;
}

export interface Timeline {
  from: string;
  to: string;
  intervals: Interval[];
  restarts: {time: string; cause: string; count?: number}[];
}

export type SeriesName = 'speed' | 'fps' | 'bitrate' | 'cpu' | 'memory' | 'viewers';

/** Figures of the last hour, one every `step` seconds. */
export interface Series {
  from: string;
  to: string;
  step: number;
  series: Record<SeriesName, (number | null)[]>;
}

export interface Finding {
  key: string;
  message: string;
}

export interface Identity {
  name: string | null;
  role: Role;
  by: string;
}

export interface User {
  name: string;
  role: Role;
}

export interface Token extends User {
  created: string;
  expires: string | null;
}

export interface Disk {
  directory: string;
  total_bytes: number | null;
  free_bytes: number | null;
  error?: string;
}

/** The machine and the server. */
export interface System {
  processors: {count: number; load: number[] | null};
  memory: {total_bytes: number | null; available_bytes: number | null};
  disks: {hls: Disk; recordings: Disk};
  gpus: {index: number; streams: number; streams_memory_mib: number}[];
  loop: {lag_ms: number; longest_lag_ms: number; longest_turn_ms: number};
  versions: {weir: string; ffmpeg: string; kernel: string};
  uptime_seconds: number;
  descriptors: {open: number | null; limit: number};
}

export interface Encoder {
  name: string;
  media: 'video' | 'audio' | 'subtitle';
  description: string;
}

export interface Webhook {
  id: string;
  url: string;
  kinds: string[];
  causes: string[];
  signed: boolean;
  from_settings: boolean;
  waiting: number;
  delivered: number;
  given_up: number;
  dropped: number;
  latest: {time: string; status?: number; error?: string} | null;
}
