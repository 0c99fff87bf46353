import {type Signal, useSignal} from '@preact/signals';
import {useEffect, useRef} from 'preact/hooks';
import type {ApiError} from '../../api/client';
import {post} from '../../api/client';
import {limited} from '../../api/limited';
import type {Finding} from '../../api/types';
import {type Document, unfinished} from '../edit/document';
import type {Pasted} from './pasted';

/** A stream that would be added. */
export interface Candidate extends Pasted {
  document: Document;
  /** What the server refuses; null until it has said so. */
  findings: Finding[] | null;
}

export interface Common {
  profile: string;
  tags: string;
}

const checkDelay = 400;

/** The document of a pasted line: HLS with the default encoding or that of the profile. */
export function documentOf({label, url}: Pasted, {profile, tags}: Common): Document {
  const words = tags.split(',').map((tag) => tag.trim()).filter((tag) => tag);
  return {
    label,
    ...(words.length && {tags: words}),
    ...(profile && {profile}),
    input: {0: {url}},
    output: unfinished.output,
  };
}

async function check(document: Document): Promise<Finding[]> {
  try {
    const {findings} = await limited(() => post<{findings: Finding[]}>('/api/streams?check=1', document));
    return findings;
  } catch (error) {
    const {findings, message} = error as ApiError;
    return findings?.length ? findings : [{key: '', message}];
  }
}

/** The candidates with what the server says to each; each document is asked about once. */
export function useCandidates(pasted: Pasted[], common: Common): Signal<Candidate[]> {
  const candidates = useSignal<Candidate[]>([]);
  const known = useRef(new Map<string, Finding[]>());
  const documents = pasted.map((one) => ({...one, document: documentOf(one, common)}));
  const text = JSON.stringify(documents);
  useEffect(() => {
    let isCurrent = true;
    const show = () => {
      candidates.value = documents.map((one) => ({...one, findings: known.current.get(JSON.stringify(one.document)) ?? null}));
    };
    show();
    const ask = async (document: Document) => {
      const key = JSON.stringify(document);
      if (!isCurrent || known.current.has(key)) return;
      known.current.set(key, await check(document));
      if (isCurrent) show();
    };
    const timer = setTimeout(() => {
      for (const {document} of documents) void ask(document);
    }, checkDelay);
    return () => {
      isCurrent = false;
      clearTimeout(timer);
    };
  }, [text]);
  return candidates;
}
