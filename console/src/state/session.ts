import {computed, signal} from '@preact/signals';
import {ApiError, get, post} from '../api/client';
import type {Identity} from '../api/types';

/** Who uses the console; null until the server has said so, and after a logout. */
export const identity = signal<Identity | null>(null);
export const mayAdministrate = computed(() => identity.value?.role === 'admin');
export const mayOperate = computed(() => identity.value !== null && identity.value.role !== 'viewer');

/** False when somebody has to log in first. Throws `ApiError` for any other failure. */
export async function identify(): Promise<boolean> {
  try {
    identity.value = await get<Identity>('/api/me');
    return true;
  } catch (failure) {
    if (failure instanceof ApiError && failure.status === 401) return false;
    throw failure;
  }
}

export async function logIn(name: string, password: string): Promise<void> {
  await post('/api/login', {name, password});
  await identify();
}

export async function logOut(): Promise<void> {
  await post('/api/logout');
  identity.value = null;
}
