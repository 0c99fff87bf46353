import {texts} from '../../../texts';
import {useMember} from './context';
import {controlId, Findings} from './field';
import type {Profile} from '../../../state/profiles';
import type {Schema} from './schema';

/** Chooses the profile by its name. */
export function ProfileField({schema, profiles}: {schema: Schema; profiles: Profile[]}) {
  const member = useMember(['profile']);
  const id = controlId('profile');
  const value = member.value === undefined || member.value === null ? '' : String(member.value);
  return (
    <div class="field">
      <label for={id}>{schema.title}</label>
      <select
        id={id}
        value={value}
        aria-invalid={member.findings.length > 0}
        aria-describedby={`${id}-hint`}
        onChange={(event) => member.set(event.currentTarget.value || undefined)}
      >
        <option value="">{texts.form.noProfile}</option>
        {value && !profiles.some((profile) => String(profile.id) === value) && <option value={value}>#{value}</option>}
        {profiles.map((profile) => (
          <option key={profile.id} value={String(profile.id)}>
            {profile.name || `#${profile.id}`}
          </option>
        ))}
      </select>
      <Findings id={`${id}-hint`} findings={member.findings} hint={texts.form.profileHint} />
    </div>
  );
}
