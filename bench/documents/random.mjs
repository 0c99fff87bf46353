// Random choices that a seed repeats.

export class Random {
  #state;

  constructor(seed) {
    this.#state = seed >>> 0;
  }

  /** From 0 to below 1 (mulberry32). */
  next() {
    this.#state = (this.#state + 0x6d2b79f5) >>> 0;
    let mixed = Math.imul(this.#state ^ (this.#state >>> 15), this.#state | 1);
    mixed ^= mixed + Math.imul(mixed ^ (mixed >>> 7), mixed | 61);
    return ((mixed ^ (mixed >>> 14)) >>> 0) / 2 ** 32;
  }

  whole(least, greatest) {
    return least + Math.floor(this.next() * (greatest - least + 1));
  }

  chance(probability) {
    return this.next() < probability;
  }

  pick(list) {
    return list[this.whole(0, list.length - 1)];
  }

  /** Some members of a mapping, each one with the probability, in their order. */
  some(members, probability) {
    return Object.fromEntries(Object.entries(members).filter(() => this.chance(probability)));
  }
}
