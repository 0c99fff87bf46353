import {useSignal} from '@preact/signals';
import {formatServerTime, readList, writeList} from '../state/timetable';
import {texts} from '../texts';

/** The members of a timetable in a document. */
export interface Times {
  minutes?: unknown;
  hours?: unknown;
  weekdays?: unknown;
}

interface TimetableProps {
  /** What is done at these times. */
  name: string;
  value: Times;
  /** The next moments, as the server answers them. */
  next: string[];
  onChange(value: Times): void;
}

const days = texts.timetable.days;
const hoursOfDay = 24;
const textOf = (value: unknown) => (value === null || value === undefined ? '' : String(value));

interface ToggleProps {
  label: string;
  name: string;
  isOn: boolean;
  isStop: boolean;
  onToggle(): void;
}

/** A day or an hour. One button of each kind is a stop of the Tab key; arrows lead to the others. */
function Toggle({label, name, isOn, isStop, onToggle}: ToggleProps) {
  return (
    <button type="button" aria-pressed={isOn} aria-label={name} tabIndex={isStop ? 0 : -1} onClick={onToggle}>
      {label}
    </button>
  );
}

function moveFocus(event: KeyboardEvent): void {
  const step = {ArrowLeft: -1, ArrowUp: -1, ArrowRight: 1, ArrowDown: 1}[event.key];
  const button = (event.target as Element).closest('button');
  if (!step || !button) return;
  const axis = button.closest('thead') ? 'thead button' : 'tbody button';
  const buttons = [...(event.currentTarget as Element).querySelectorAll<HTMLButtonElement>(axis)];
  const next = buttons[buttons.indexOf(button) + step];
  if (!next) return;
  event.preventDefault();
  next.focus();
}

function toggled(numbers: ReadonlySet<number>, number: number): Set<number> {
  const next = new Set(numbers);
  if (!next.delete(number)) next.add(number);
  return next;
}

function Next({next}: {next: string[]}) {
  const times = next.map(formatServerTime).join(' · ');
  return <p class="quiet">{times ? texts.timetable.next(times) : texts.timetable.never}</p>;
}

/** Days and hours as a week: what acts at 3 h on Sunday does so in the cell of both. */
export function Timetable({name, value, next, onChange}: TimetableProps) {
  const stop = useSignal({day: 0, hour: 0});
  const hours = readList(textOf(value.hours), hoursOfDay);
  const weekdays = readList(textOf(value.weekdays), days.length);
  if (!hours || !weekdays) return <p class="failure">{texts.timetable.unreadable}</p>;
  const setHour = (hour: number) => {
    const set = toggled(hours, hour);
    // Who chooses the first hour means every day until days are chosen.
    const chosen = weekdays.size === 0 && hours.size === 0 ? '*' : textOf(value.weekdays);
    onChange({...value, hours: writeList(set, hoursOfDay), weekdays: chosen});
    stop.value = {...stop.value, hour};
  };
  const setDay = (day: number) => {
    onChange({...value, weekdays: writeList(toggled(weekdays, day), days.length)});
    stop.value = {...stop.value, day};
  };
  return (
    <div class="timetable">
      <div class="scroll">
        <table aria-label={name} onKeyDown={moveFocus}>
          <thead>
            <tr>
              <td />
              {Array.from({length: hoursOfDay}, (_, hour) => (
                <th scope="col" key={hour}>
                  <Toggle
                    label={String(hour)}
                    name={texts.timetable.hour(hour)}
                    isOn={hours.has(hour)}
                    isStop={hour === stop.value.hour}
                    onToggle={() => setHour(hour)}
                  />
                </th>
              ))}
            </tr>
          </thead>
          <tbody>
            {days.map((day, index) => (
              <tr key={day}>
                <th scope="row">
                  <Toggle
                    label={day}
                    name={day}
                    isOn={weekdays.has(index)}
                    isStop={index === stop.value.day}
                    onToggle={() => setDay(index)}
                  />
                </th>
                {Array.from({length: hoursOfDay}, (_, hour) => {
                  const acts = weekdays.has(index) && hours.has(hour);
                  return (
                    <td key={hour} class={acts ? 'acts' : ''}>
                      {acts ? '●' : ''}
                    </td>
                  );
                })}
              </tr>
            ))}
          </tbody>
        </table>
      </div>
      <label>
        {texts.timetable.minutes}{' '}
        <input
          value={textOf(value.minutes)}
          placeholder="0"
          onInput={(event) => onChange({...value, minutes: event.currentTarget.value})}
        />
      </label>
      <Next next={next} />
    </div>
  );
}
