import type {Role} from '../api/types';
import {texts} from '../texts';

const roles = Object.keys(texts.users.roles) as Role[];

/** Chooses a role, with what it may do. */
export function RoleField({value}: {value: Role}) {
  return (
    <label>
      {texts.users.role}
      <select name="role">
        {roles.map((role) => (
          <option key={role} value={role} selected={role === value}>
            {texts.users.roles[role]}
          </option>
        ))}
      </select>
    </label>
  );
}
