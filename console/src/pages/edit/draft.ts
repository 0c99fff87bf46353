import {type Signal, useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {type ApiError, getTagged, patch, post} from '../../api/client';
import type {Finding} from '../../api/types';
import {type Document, difference, format, isFinding, parse, unfinished, withoutServerMembers} from './document';
import type {Preview} from './preview';

const checkDelay = 400;

/** A document as the server has it, with the tag that an edit of it sends back. */
export interface Stored {
  document: Document;
  tag: string;
}

export async function readStored(id: number): Promise<Stored> {
  const {value, tag} = await getTagged<Document>(`/api/streams/${id}/config`);
  return {document: withoutServerMembers(value), tag};
}

const refusal = (findings: Finding[]): Preview => ({accepted: false, findings, warnings: []});

async function check(id: number | undefined, stored: Stored | null, text: string): Promise<Preview> {
  const document = parse(text);
  if (isFinding(document)) return refusal([document]);
  if (id === undefined) return post<Preview>('/api/streams?check=1', document);
  return patch<Preview>(`/api/streams/${id}?check=1`, difference(stored?.document ?? {}, document));
}

/** What the server would say to the text, asked while somebody types; null before the first answer. */
export function useCheck(id: number | undefined, stored: Signal<Stored | null>, text: Signal<string>): Signal<Preview | null> {
  const preview = useSignal<Preview | null>(null);
  useEffect(() => {
    if (!text.value) return;
    let isCurrent = true;
    const take = (answer: Preview) => {
      if (isCurrent) preview.value = answer;
    };
    const timer = setTimeout(() => {
      check(id, stored.value, text.value).then(take, (error: ApiError) =>
        take(refusal(error.findings?.length ? error.findings : [{key: '', message: error.message}])),
      );
    }, checkDelay);
    return () => {
      isCurrent = false;
      clearTimeout(timer);
    };
  }, [id, text.value, stored, preview]);
  return preview;
}

/** Saves, and returns the stream's id. */
export async function save(id: number | undefined, stored: Stored | null, text: string): Promise<number> {
  const document = parse(text) as Document;
  if (id === undefined) return (await post<{id: number}>('/api/streams', document)).id;
  await patch(`/api/streams/${id}`, difference(stored?.document ?? {}, document), {'If-Match': stored?.tag ?? ''});
  return id;
}

const draftName = (id: number | undefined, stored: Stored | null) => `draft ${id ?? 'new'} ${stored?.tag ?? ''}`;

/** What was typed stays over a reload of the page, for as long as the document is the one that it began with. */
export function useDraft(id: number | undefined, stored: Signal<Stored | null>, text: Signal<string>) {
  const name = draftName(id, stored.value);
  const ready = id === undefined || stored.value !== null;
  useEffect(() => {
    if (!ready) return;
    text.value = sessionStorage.getItem(name) ?? format(stored.value?.document ?? unfinished);
  }, [name, ready, stored, text]);
  return {
    keep: (typed: string) => {
      text.value = typed;
      sessionStorage.setItem(draftName(id, stored.value), typed);
    },
    forget: () => sessionStorage.removeItem(name),
  };
}
