import {get} from '../api/client';

/** Settings that streams have in common. */
export interface Profile extends Record<string, unknown> {
  id: number;
  name: string;
  /** What its next application makes of it. */
  draft?: Record<string, unknown>;
  /** The ids of its streams. */
  users: number[];
}

export const loadProfiles = () => get<Profile[]>('/api/profiles');
