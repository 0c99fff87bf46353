import type {Signal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {getTagged, patch, post} from '../../api/client';
import {type Document, difference, format, parse, unfinished, withoutServerMembers} from './document';
import type {Preview} from './preview';

/** A document as the server has it, with the tag that an edit of it sends back. */
export interface Stored {
  document: Document;
  tag: string;
}

export async function readStored(id: number): Promise<Stored> {
  const {value, tag} = await getTagged<Document>(`/api/streams/${id}/config`);
  return {document: withoutServerMembers(value), tag};
}

/** What the server would say to the document. */
export function check(id: number | undefined, stored: Stored | null, document: Document): Promise<Preview> {
  if (id === undefined) return post<Preview>('/api/streams?check=1', document);
  return patch<Preview>(`/api/streams/${id}?check=1`, difference(stored?.document ?? {}, document));
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
