import {signal} from '@preact/signals';
import {useEffect, useRef} from 'preact/hooks';
import {texts} from '../texts';

interface NumberField {
  label: string;
  value: number;
  max: number;
}

interface Question {
  text: string;
  button: string;
  number?: NumberField;
  answer(yes: boolean): void;
}

const question = signal<Question | null>(null);

/** Asks in a dialog what is about to be done; `button` says it in a word. */
export function confirm(text: string, button: string): Promise<boolean> {
  return new Promise((resolve) => {
    question.value = {text, button, answer: resolve};
  });
}

/** Asks the same and for a number; null when it is not to be done. */
export async function confirmWithNumber(text: string, button: string, number: NumberField): Promise<number | null> {
  const asked = {...number};
  const yes = await new Promise<boolean>((resolve) => {
    question.value = {text, button, number: asked, answer: resolve};
  });
  return yes ? asked.value : null;
}

function NumberInput({field}: {field: NumberField}) {
  return (
    <label>
      {field.label}{' '}
      <input
        type="number"
        min="0"
        max={field.max}
        step="any"
        required
        defaultValue={`${field.value}`}
        onInput={(event) => (field.value = event.currentTarget.valueAsNumber)}
      />
    </label>
  );
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
      <form
        onSubmit={(event) => {
          event.preventDefault();
          answer(true);
        }}
      >
        <p id="question">{asked?.text}</p>
        {asked?.number && <NumberInput field={asked.number} />}
        <div class="buttons">
          <button type="button" onClick={() => answer(false)}>
            {texts.actions.cancel}
          </button>
          <button class="primary">{asked?.button}</button>
        </div>
      </form>
    </dialog>
  );
}
