import {useSignal} from '@preact/signals';
import {texts} from '../texts';

// The clipboard API is absent where the page came by plain HTTP from another machine.
function copyBySelection(text: string): boolean {
  const area = document.createElement('textarea');
  area.value = text;
  area.className = 'offscreen';
  document.body.append(area);
  area.select();
  const done = document.execCommand('copy');
  area.remove();
  return done;
}

async function copy(text: string): Promise<boolean> {
  if (!navigator.clipboard) return copyBySelection(text);
  return navigator.clipboard.writeText(text).then(
    () => true,
    () => copyBySelection(text),
  );
}

export function CopyButton({text, label = texts.list.copyAddress}: {text: string; label?: string}) {
  const copied = useSignal(false);
  const onClick = async () => {
    copied.value = await copy(text);
    setTimeout(() => {
      copied.value = false;
    }, 1500);
  };
  return (
    <button type="button" class="small" onClick={onClick} aria-label={label === texts.list.copyAddress ? `${label}: ${text}` : label}>
      {copied.value ? texts.list.copied : label}
    </button>
  );
}
