import type {ComponentChildren} from 'preact';
import {query, setQuery} from '../../state/router';
import {texts} from '../../texts';
import {type Document, format, isFinding, parse} from './document';

const isText = () => query.value.get('as') === 'json';

/** The two ways to edit, kept in step: both change the same text. */
export function Tabs() {
  const tab = (isChosen: boolean, text: string, value: string) => (
    <button type="button" aria-pressed={isChosen} onClick={() => setQuery({as: value})}>
      {text}
    </button>
  );
  return (
    <div class="views" role="group" aria-label={texts.edit.as}>
      {tab(!isText(), texts.edit.asForm, '')}
      {tab(isText(), texts.edit.asText, 'json')}
    </div>
  );
}

interface EditorProps {
  text: string;
  onInput(text: string): void;
  /** Makes the form. */
  children(document: Document, change: (changed: Document) => void): ComponentChildren;
}

/** The text of a document, as a form or as it is. */
export function Editor({text, onInput, children}: EditorProps) {
  if (isText())
    return (
      <label>
        {texts.edit.document}
        <textarea
          spellcheck={false}
          rows={28}
          value={text}
          aria-describedby="findings"
          onInput={(event) => onInput(event.currentTarget.value)}
        />
      </label>
    );
  const document = parse(text || '{}');
  if (isFinding(document)) return <p class="notice">{texts.edit.notReadable}</p>;
  return <>{children(document, (changed) => onInput(format(changed)))}</>;
}
