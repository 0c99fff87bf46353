import {signal} from '@preact/signals';
import {get} from '../api/client';
import type {Encoder} from '../api/types';

/** The encoders of the server's FFmpeg; empty until they are known. */
export const encoders = signal<Encoder[]>([]);

let isAsked = false;

/** Asks for them once; without an answer there are no suggestions. */
export function loadEncoders(): void {
  if (isAsked) return;
  isAsked = true;
  get<Encoder[]>('/api/encoders').then(
    (list) => (encoders.value = list),
    () => (isAsked = false),
  );
}
