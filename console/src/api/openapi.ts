// Made of docs/openapi.yaml by openapi_types.mjs; changes belong there.

export type Role = "viewer" | "operator" | "admin";

export type User = {
  name: string;
  role: Role;
};

export type Failure = {
  error: string;
};

export type Time = string;

export type Form = Record<string, unknown>;

export type Ids = (number | string)[];

export type Findings = ({
  /** The path of the member; empty for the form as a whole. */
  key: string;
  message: string;
})[];

export type Export = {
  format: 1;
  version?: string;
  time?: string;
  profiles?: (Record<"id", unknown>)[];
  streams?: (Record<"id", unknown>)[];
  settings?: {
    webhooks?: (Record<"id" | "url", unknown>)[];
  };
};

export type ImportedIds = Record<"added" | "changed" | "removed" | "unchanged", (number | string)[]>;

export type Pending = (string)[];

export type Changed = {
  ok: true;
  pending: Pending;
  warnings?: Findings;
};

export type Preview = {
  accepted: boolean;
  findings: Findings;
  warnings: Findings;
  /** With which the transcoder would be launched; when it is accepted. */
  command?: (string)[];
  /** For each key of the form; when it is accepted. */
  takes_effect?: Record<string, "at once" | "with the next restart" | "when the stream is started">;
  /** The next five times at which a stream would be restarted, and go back to a better input, in the server's local time; when it is accepted. */
  timetable?: {
    restart: (string)[];
    switch: (string)[];
  };
};

export type BrokenFile = {
  file: string;
  reason: string;
};

export type Cause = "exited" | "signalled" | "not_launched" | "no_input" | "stalled" | "speed" | "memory" | "directory_lost" | "timetable" | "better_input" | "operator" | "server_end" | "failed";

export type Kind = "status" | "started" | "launched" | "running" | "ended" | "stopped" | "failed" | "added" | "changed" | "deleted" | "set_aside" | "notice";

export type Entry = {
  number: number;
  time: Time;
  kind: Kind;
  /** Null for the server. */
  stream: number | null;
  label: string | null;
  cycle?: number;
  input?: number;
  process?: number;
  cause?: Cause;
  /** Minus the number of a signal. */
  exit_status?: number;
  /** Since the launch. */
  cycle_seconds?: number;
  /** Since the first progress. */
  on_air_seconds?: number;
  /** Until the next launch. */
  retry_seconds?: number;
  /** Who asked. */
  by?: string;
  text?: string;
  /** All of it in words. */
  description: string;
  /** How many ends of a crash loop this is. */
  count?: number;
  first?: Time;
};

export type Link = {
  id: number;
  name: string;
  /** Who made it. */
  by: string;
  created: Time;
  expires: Time;
};

export type MediaStream = {
  index: number;
  /** "video", "audio", "subtitle" … */
  type: string;
  codec: string;
  profile?: string;
  level?: number;
  language?: string;
  width?: number;
  height?: number;
  fps?: number;
  pix_fmt?: string;
  sample_rate?: number;
  /** A number; in a stream's record FFmpeg's word. */
  channels?: number | string;
  bitrate?: number;
  /** What the encoder was asked for. */
  bitrate_avg?: number;
};

export type Webhook = {
  id: string;
  url: string;
  kinds: (Kind)[];
  causes: (Cause)[];
  /** Whether it has a secret. */
  signed: boolean;
  /** Whether it is of the file of --webhooks and can't be changed here. */
  from_settings: boolean;
  /** Entries that are to be sent. */
  waiting: number;
  delivered: number;
  given_up: number;
  dropped: number;
  /** The latest attempt. */
  latest: {
    time: Time;
    status?: number;
    error?: string;
  } | null;
};

export type Disk = {
  directory: string;
  total_bytes: number | null;
  free_bytes: number | null;
  error?: string;
};

export type System = {
  processors: {
    count: number;
    /** Of the last 1, 5 and 15 minutes. */
    load: (number)[] | null;
  };
  memory: {
    total_bytes: number | null;
    available_bytes: number | null;
  };
  disks: {
    hls: Disk;
    recordings: Disk;
  };
  /** What streams use of each graphics processor. */
  gpus: ({
    index: number;
    streams: number;
    streams_memory_mib: number;
  })[];
  loop: {
    /** How late the latest timer was. */
    lag_ms: number;
    longest_lag_ms: number;
    /** For how long one task held the loop at most. */
    longest_turn_ms: number;
    busy_seconds: number;
    /** How many turns there were of which length. */
    turns: ({
      up_to_ms: number | null;
      count: number;
    })[];
  };
  versions: {
    weir: string;
    ffmpeg: string;
    kernel: string;
  };
  uptime_seconds: number;
  descriptors: {
    open: number | null;
    limit: number;
  };
};

export type ProfileRecord = Record<string, unknown> & {
  users: (number)[];
};

export type Stream = {
  id: number;
  label: unknown;
  hwaccel: string | null;
  encoders: (string)[];
  /** FFmpeg's latest figure. */
  bitrate: number;
  quality: number;
  fps: number;
  /** Media time in seconds. */
  time: number;
  /** The average since the launch. */
  speed: number;
  status: "starting" | "running" | "restarting" | "stopped";
  /** Of the transcoder; empty while there is none. */
  process_info: {
    cpu_percent?: number;
    /** In MiB. */
    mem_rss?: number;
    gpu_dec?: number | null;
    gpu_sm?: number | null;
    gpu_enc?: number | null;
    gpu_mem?: number | null;
  };
  url_info: {
    inputs: (string | null)[];
    outputs: (string)[];
    input_index: number;
  };
  codec_info: {
    inputs: (MediaStream)[];
    outputs: (MediaStream)[];
  };
  /** Viewers, by the number of the output. */
  client_info: Record<string, {
    protocol: "hls" | "http";
    clients: ({
      addr: string | null;
      /** Seconds. */
      duration: number;
    })[];
  }>;
  /** Why members of the record are missing. */
  error?: string;
  pending: Pending;
  cycle: {
    number: number;
    /** `waiting`: for a receiver that has to connect. */
    state: "starting" | "running" | "waiting" | "restarting" | "stopped";
    since: Time | null;
    input: number | null;
    /** Whether it is input 0. */
    preferred: boolean | null;
    /** Seconds; between cycles. */
    next_launch: number | null;
    last_end: {
      time: Time;
      cause: string;
      exit_status: number | null;
      on_air_seconds: number | null;
      text: string;
    } | null;
  };
  measured: {
    /** Over the last 30 s. */
    speed: number | null;
    bitrate: number | null;
    /** The bit rate of each HLS rendition. */
    renditions: (number | null)[];
    seconds_without_progress: number | null;
  };
  inputs: ({
    url: string;
    in_use: boolean;
    preferred: boolean;
    /** What the latest probe told. */
    probe: {
      answers: boolean;
      time: Time;
      reason: string | null;
    } | null;
  })[];
  limits: {
    speed: {
      min: number | null;
      max: number | null;
    } | null;
    memory_mib: number | null;
    gpu_memory_mib: number | null;
    viewers: {
      total: number | null;
      per_stream: number | null;
      per_address: number | null;
    };
  };
  /** When a restart, and a look for a better input, are due. */
  timetable: {
    restart: Time | null;
    switch: Time | null;
  };
  tags: (string)[];
  /** The id of the profile that the document names. */
  profile: number | null;
  history: {
    /** By cause, of the last hour and day. */
    restarts: {
      hour: CauseCounts;
      day: CauseCounts;
    };
    /** Of the last 24 hours. */
    on_air_percent: number | null;
  };
  /** Of a stream whose transcoder runs. */
  outputs: ({
    index: number;
    protocol: string;
    url?: string;
    state: "starting" | "sending" | "retrying" | "failed" | "unknown";
    since: Time;
    error?: string;
  })[];
  /** The path of a small picture. */
  preview: string | null;
};

export type CauseCounts = Partial<Record<Cause, number>>;

/** What calls answer, by their operationId. */
export interface Answers {
  getHealth: {
    ok: true;
  };
  getReadiness: {
    ok: true;
  };
  getVersion: {
    version: string;
    ffmpeg: string | null;
    build: string;
  };
  listEncoders: ({
    name: string;
    media: "video" | "audio" | "subtitle";
    description: string;
  })[];
  getSystem: System;
  probe: {
    format: string;
    /** Seconds; null for a live source. */
    duration: number | null;
    bitrate: number | null;
    streams: (MediaStream)[];
  };
  probeInput: {
    format: string;
    /** Seconds; null for a live source. */
    duration: number | null;
    bitrate: number | null;
    streams: (MediaStream)[];
  };
  countStreams: {
    total: number;
    starting: number;
    running: number;
    restarting: number;
    stopped: number;
    gpu?: string;
  };
  listStreams: (Stream)[] | (BrokenFile)[];
  addStream: Preview;
  getStream: Stream;
  changeStream: Changed | Preview;
  copyStream: {
    id: number;
    warnings?: Findings;
  };
  startStream: {
    ok: true;
  };
  stopStream: {
    ok: true;
  };
  restartStream: {
    ok: true;
  };
  getStreamDocument: Record<string, unknown>;
  getStreamUrls: (string)[];
  addClient: {
    ok: true;
  };
  removeClient: {
    ok: true;
  };
  getSeries: {
    from: Time;
    to: Time;
    step: 10;
    series: Partial<Record<"speed" | "fps" | "bitrate" | "cpu" | "memory" | "viewers", (number | null)[]>>;
  };
  getStreamHistory: (Entry)[];
  getTimeline: {
    from: Time;
    to: Time;
    intervals: ({
      from: Time;
      to: Time;
      status: "starting" | "running" | "restarting" | "stopped" | "failed" | "server_down";
      input?: number;
    })[];
    restarts: ({
      time: Time;
      first?: Time;
      /** Of a crash loop. */
      count?: number;
      cause: Cause;
      input?: number;
      description: string;
    })[];
  };
  listLinks: (Link)[];
  addLink: {
    id: number;
    name: string;
    by: string;
    created: Time;
    expires: Time;
    /** A segment of the path of each address. */
    token: string;
    urls: (string)[];
  };
  getHistory: (Entry)[];
  startStreams: {
    ok: true;
    results: ({
      /** As it was sent. */
      id: unknown;
      ok: boolean;
      error?: string;
      pending?: Pending;
    })[];
  };
  stopStreams: {
    ok: true;
    results: ({
      /** As it was sent. */
      id: unknown;
      ok: boolean;
      error?: string;
      pending?: Pending;
    })[];
  };
  restartStreams: {
    ok: true;
    results: ({
      /** As it was sent. */
      id: unknown;
      ok: boolean;
      error?: string;
      pending?: Pending;
    })[];
  };
  deleteStreams: {
    ok: true;
    results: ({
      /** As it was sent. */
      id: unknown;
      ok: boolean;
      error?: string;
      pending?: Pending;
    })[];
  };
  changeStreams: {
    ok: true;
    results: ({
      /** As it was sent. */
      id: unknown;
      ok: boolean;
      error?: string;
      pending?: Pending;
    })[];
  };
  listProfiles: (ProfileRecord)[];
  addProfile: Preview;
  getProfile: ProfileRecord;
  changeProfile: {
    ok: true;
    /** Paths in which the draft differs from the profile. */
    pending: (string)[];
    warnings?: Findings;
  } | Preview;
  applyProfile: {
    ok: true;
    results: ({
      id: number;
      ok: boolean;
      /** Paths of the document that the profile changed. */
      changed?: (string)[];
      pending?: Pending;
      error?: string;
    })[];
  };
  export: Export;
  import: {
    ok: true;
    dry_run: boolean;
    profiles: ImportedIds;
    streams: ImportedIds;
    webhooks: ImportedIds;
  };
  listWebhooks: (Webhook)[];
  addWebhook: {
    id: string;
  };
  getWebhook: Webhook;
  changeWebhook: {
    ok: true;
  };
  testWebhook: {
    delivered: boolean;
    status?: number;
    error?: string;
  };
  login: User;
  getMe: {
    name: string | null;
    role: Role;
    by: "session" | "token" | "loopback" | "address";
  };
  listUsers: (User)[];
  addUser: User;
  changeUser: {
    ok: true;
  };
  listTokens: ({
    name: string;
    role: Role;
    created: Time;
    expires: Time | null;
  })[];
  addToken: {
    name: string;
    token: string;
  };
}
