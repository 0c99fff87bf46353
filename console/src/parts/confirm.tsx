import {signal} from '@preact/signals';
import {useEffect, useRef} from 'preact/hooks';
import {texts} from '../texts';

interface Question {
  text: string;
  button: string;
  answer(yes: boolean): void;
}

const question = signal<Question | null>(null);

/** Asks in a dialog what is about to be done; `button` says it in a word. */
export function confirm(text: string, button: string): Promise<boolean> {
  return new Promise((resolve) => {
    question.value = {text, button, answer: resolve};
  });
}

/** Stands once in the page, and shows the question that `confirm` asks. */
export function ConfirmDialog() {
  const dialog = useRef<HTMLDialogElement>(null);
  const asked = question.value;
  useEffect(() => {
    if (asked) dialog.current?.showModal();
    else dialog.current?.close();
  }, [asked]);
  const answer = (yes: boolean) => {
    question.value = null;
    asked?.answer(yes);
  };
  return (
    <dialog ref={dialog} aria-labelledby="question" onCancel={() => answer(false)}>
      <p id="question">{asked?.text}</p>
      <div class="buttons">
        <button type="button" onClick={() => answer(false)}>
          {texts.actions.cancel}
        </button>
        <button type="button" class="primary" onClick={() => answer(true)}>
          {asked?.button}
        </button>
      </div>
    </dialog>
  );
}
