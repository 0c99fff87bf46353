import {get} from '../../../api/client';
import type {Document} from '../document';

export type Profile = Document & {id: number; name: string};

export const loadProfiles = () => get<Profile[]>('/api/profiles');
