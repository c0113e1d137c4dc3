// What the reader has chosen, and who shows it.

export class State {
  #values;
  #watchers = [];

  constructor(values) {
    this.#values = values;
  }

  get(name) {
    return this.#values[name];
  }

  /** Takes over `changes` and tells those who watch one of them. */
  set(changes) {
    const changed = Object.keys(changes).filter((name) => this.#values[name] !== changes[name]);
    Object.assign(this.#values, changes);
    for (const { names, action } of this.#watchers)
      if (names.some((name) => changed.includes(name))) action();
  }

  /** Calls `action` after each change of one of `names`. */
  on(names, action) {
    this.#watchers.push({ names, action });
  }

  /** Calls it now as well. */
  watch(names, action) {
    this.on(names, action);
    action();
  }
}
