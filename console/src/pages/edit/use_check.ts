import {type Signal, useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import type {ApiError} from '../../api/client';
import type {Finding} from '../../api/types';
import {type Document, isFinding, parse} from './document';
import type {Preview} from './preview';

const checkDelay = 400;

const refusal = (findings: Finding[]): Preview => ({accepted: false, findings, warnings: []});

/** What the server would say to the text, asked while somebody types; null before the first answer. */
export function useCheck(text: Signal<string>, ask: (document: Document) => Promise<Preview>): Signal<Preview | null> {
  const preview = useSignal<Preview | null>(null);
  useEffect(() => {
    if (!text.value) return;
    let isCurrent = true;
    const take = (answer: Preview) => {
      if (isCurrent) preview.value = answer;
    };
    const timer = setTimeout(() => {
      const document = parse(text.value);
      if (isFinding(document)) return take(refusal([document]));
      ask(document).then(take, (error: ApiError) =>
        take(refusal(error.findings?.length ? error.findings : [{key: '', message: error.message}])),
      );
    }, checkDelay);
    return () => {
      isCurrent = false;
      clearTimeout(timer);
    };
  }, [text.value, preview]);
  return preview;
}
