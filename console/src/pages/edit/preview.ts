import type {Finding} from '../../api/types';

/** What the server would do with a form. */
export interface Preview {
  accepted: boolean;
  findings: Finding[];
  warnings: Finding[];
  command?: string[];
  takes_effect?: Record<string, string>;
  /** The next times at which the stream is restarted, and goes back to a better input. */
  timetable?: Record<'restart' | 'switch', string[]>;
}
