import {createContext} from 'preact';
import {useContext} from 'preact/hooks';
import type {Finding} from '../../../api/types';
import type {Document} from '../document';
import type {Preview} from '../preview';
import {isMapping, type Path, valueAt, withValue} from './paths';

/** A profile as the form shows it beside the document. */
export interface ChosenProfile {
  name: string;
  document: Document;
}

interface Form {
  document: Document;
  change(document: Document): void;
  findings: Finding[];
  profile: ChosenProfile | null;
  timetable: Preview['timetable'];
}

const Context = createContext<Form>({document: {}, change: () => {}, findings: [], profile: null, timetable: undefined});

export const FormProvider = Context.Provider;
export const useForm = () => useContext(Context);

/** What a profile never sets: it belongs to the stream's own picture and inputs. */
const ownMembers = new Set(['video.map', 'audio.map', 'subtitle.map', 'video.delogo', 'video.cvdelogo.filename']);
const encoding = new Set(['video', 'audio', 'subtitle']);

export interface Member {
  key: string;
  value: unknown;
  findings: Finding[];
  /** The profile that decides on the member; null where the stream does. */
  profile: ChosenProfile | null;
  /** Whether the stream sets it though it has a profile. */
  isOwn: boolean;
  set(value: unknown): void;
}

/** One member of the document that is edited. */
export function useMember(path: Path): Member {
  const form = useForm();
  const key = path.join('.');
  const isOfProfile = form.profile !== null && encoding.has(path[0] ?? '') && !ownMembers.has(key);
  const own = valueAt(form.document, path);
  return {
    key,
    value: isOfProfile ? valueAt(form.profile?.document ?? {}, path) : own,
    findings: form.findings.filter((finding) => finding.key === key),
    profile: isOfProfile ? form.profile : null,
    isOwn: form.profile !== null && ownMembers.has(key) && own !== undefined && own !== '',
    set: (value) => form.change(withValue(form.document, path, value)),
  };
}

/** Whether the server found a fault in one of the members below the path. */
export function useHasFindings(path: Path, names: string[]): boolean {
  const keys = names.map((name) => [...path, name].join('.'));
  return useForm().findings.some(({key}) => keys.some((known) => key === known || key.startsWith(`${known}.`)));
}

/** Whether one of the members below the path is set. */
export function useIsSet(path: Path, names: string[]): boolean {
  const mapping = valueAt(useForm().document, path);
  return isMapping(mapping) && names.some((name) => name in mapping);
}
