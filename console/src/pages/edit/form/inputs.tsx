import {useSignal} from '@preact/signals';
import {useRef} from 'preact/hooks';
import {Probe} from '../../../parts/probe';
import {texts} from '../../../texts';
import type {Document} from '../document';
import {useForm} from './context';
import {Fields} from './fields';
import {Options} from './options';
import {moved, numbered, renumbered} from './paths';
import {memberOf, numberedOf, type Schema} from './schema';

interface CardProps {
  index: number;
  input: Document;
  count: number;
  schema: Schema;
  move(to: number): void;
  remove(): void;
  drag: {start(): void; over(): void; drop(): void};
}

function InputCard({index, input, count, schema, move, remove, drag}: CardProps) {
  const path = ['input', String(index)];
  const card = useRef<HTMLLIElement>(null);
  return (
    <li
      ref={card}
      class="card"
      onDragOver={(event) => {
        event.preventDefault();
        drag.over();
      }}
      onDrop={(event) => {
        event.preventDefault();
        drag.drop();
      }}
    >
      <div class="card-head">
        <span
          class="handle"
          draggable
          title={texts.form.drag}
          aria-hidden="true"
          onDragStart={(event) => {
            if (card.current) event.dataTransfer?.setDragImage(card.current, 0, 0);
            drag.start();
          }}
        >
          ⠿
        </span>
        <h3>{texts.form.input(index)}</h3>
        <button
          type="button"
          id={`up-${index}`}
          aria-label={texts.form.earlier(index)}
          disabled={index === 0}
          onClick={() => move(index - 1)}
        >
          ↑
        </button>
        <button
          type="button"
          id={`down-${index}`}
          aria-label={texts.form.later(index)}
          disabled={index === count - 1}
          onClick={() => move(index + 1)}
        >
          ↓
        </button>
        <button type="button" aria-label={texts.form.removeInput(index)} disabled={count === 1} onClick={remove}>
          {texts.form.remove}
        </button>
      </div>
      <Fields path={path} schema={schema} first={['url']} wide={['url']} without={['options']} />
      <Options path={[...path, 'options']} schema={memberOf(schema, 'options')} />
      <Probe key={JSON.stringify(input)} isPossible={Boolean(input.url)} read={() => input} />
    </li>
  );
}

/** The inputs in order of priority; sorted by dragging or by their buttons. */
export function Inputs({schema}: {schema: Schema}) {
  const {document, change} = useForm();
  const dragged = useRef(-1);
  const target = useRef(-1);
  const news = useSignal('');
  const inputs = numbered(document.input).map(([, input]) => input);
  const store = (members: Document[]) => change({...document, input: renumbered(document.input, members)});
  const move = (from: number, to: number, button: string) => {
    store(moved(inputs, from, to));
    news.value = texts.form.moved(from, to);
    requestAnimationFrame(() => {
      const wanted = globalThis.document.querySelector<HTMLButtonElement>(`#${button}-${to}`);
      (wanted?.disabled ? wanted.parentElement?.querySelector<HTMLButtonElement>('button:enabled') : wanted)?.focus();
    });
  };
  return (
    <section class="panel">
      <h2>{schema.title}</h2>
      <p class="quiet">{texts.form.inputsHint}</p>
      <ol class="cards">
        {inputs.map((input, index) => (
          <InputCard
            key={index}
            index={index}
            input={input}
            count={inputs.length}
            schema={numberedOf(schema)}
            move={(to) => move(index, to, to < index ? 'up' : 'down')}
            remove={() => store(inputs.filter((_, other) => other !== index))}
            drag={{
              start: () => (dragged.current = index),
              over: () => (target.current = index),
              drop: () => {
                const from = dragged.current;
                dragged.current = -1;
                if (from >= 0 && from !== target.current) store(moved(inputs, from, target.current));
              },
            }}
          />
        ))}
      </ol>
      <p class="offscreen" role="status">
        {news}
      </p>
      <button type="button" onClick={() => store([...inputs, {}])}>
        {texts.form.addInput}
      </button>
    </section>
  );
}
