import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {query, setQuery} from '../../state/router';
import type {StreamState} from '../../state/streams';
import {texts} from '../../texts';
import {loadProfiles, type Profile} from '../../state/profiles';

interface FilterProps {
  label: string;
  /** The parameter of the address. */
  name: string;
  options: [value: string, text: string][];
}

function FilterSelect({label, name, options}: FilterProps) {
  return (
    <label>
      {label}{' '}
      <select value={query.value.get(name) ?? ''} onChange={(event) => setQuery({[name]: event.currentTarget.value})}>
        <option value="">{texts.list.all}</option>
        {options.map(([value, text]) => (
          <option key={value} value={value}>
            {text}
          </option>
        ))}
      </select>
    </label>
  );
}

/** Narrows the list to a tag that a stream has. */
export function TagSelect({all}: {all: ReadonlyMap<number, StreamState>}) {
  const current = query.value.get('tag') ?? '';
  const tags = new Set([...all.values()].flatMap(({record}) => record.value.tags ?? []));
  if (current) tags.add(current);
  if (tags.size === 0) return null;
  return <FilterSelect label={texts.glance.tag} name="tag" options={[...tags].sort().map((tag) => [tag, tag])} />;
}

/** Narrows the list to a profile that a stream has. */
export function ProfileSelect({all}: {all: ReadonlyMap<number, StreamState>}) {
  const names = useSignal<Profile[]>([]);
  const current = query.value.get('profile') ?? '';
  const used = new Set([...all.values()].flatMap(({record}) => record.value.profile ?? []).map(String));
  if (current) used.add(current);
  const isNeeded = used.size > 0;
  useEffect(() => {
    if (isNeeded) void loadProfiles().then((read) => (names.value = read), () => {});
  }, [isNeeded, names]);
  if (!isNeeded) return null;
  const nameOf = (id: string) => names.value.find((profile) => String(profile.id) === id)?.name ?? `#${id}`;
  return <FilterSelect label={texts.profiles.one} name="profile" options={[...used].map((id) => [id, nameOf(id)])} />;
}
