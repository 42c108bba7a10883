// Uses a page: each visible control once from a fresh load, as a person would who tries everything.
import { pause } from './time.mjs';

export const mostControls = 40;

// Of all uses of one run together, so that the check keeps its own limit.
const allMs = 9000;
let leftMs = allMs;

// What a click starts shows at once, or a little later.
const soonMs = 40;
const lateMs = 160;

const mostPairs = 3;
const leastRetries = 2;

// The first screen also has to find out what changes nothing.
const firstShare = 0.65;

// Of the whole run: a page that takes long to open is left time for that.
const latestMs = 13000;

/** Which controls were tried on any screen, and which have never changed anything. */
export class Tried {
  #controls = new Map();
  total = 0;

  add({ kind, name }, isAlive) {
    const key = `${kind} ${name}`;
    this.#controls.set(key, { kind, name, isAlive: isAlive || Boolean(this.#controls.get(key)?.isAlive) });
  }

  /** Buttons after which nothing had changed, whatever was done before. */
  get dead() {
    return [...this.#controls.values()].filter(({ kind, isAlive }) => kind === 'button' && !isAlive).map(({ name }) => name);
  }

  has({ kind, name }) {
    return this.#controls.has(`${kind} ${name}`);
  }

  get size() {
    return this.#controls.size;
  }
}

/** One use of a page on one screen. `page` is the tab: load(), ask(), click(), press(), and `effects`, which grows when
 *  the page does something that leaves no trace in the document. */
export class Use {
  #page;
  #tried;
  #isFresh = false;
  #until;
  #leaving = new Set(); // What leads away from the page.

  constructor(page, tried, screensLeft) {
    this.#page = page;
    this.#tried = tried;
    this.#until = Math.min(latestMs, performance.now() + leftMs * (screensLeft > 1 ? firstShare : 1));
  }

  async run() {
    const started = performance.now();
    if (this.#isLate)
      return;
    try {
      await this.#useAll();
    } finally {
      leftMs = Math.max(0, leftMs - (performance.now() - started));
    }
  }

  get #isLate() {
    return performance.now() > this.#until;
  }

  async #useAll() {
    const controls = await this.#fresh();
    this.#tried.total = Math.max(this.#tried.total, controls.length);
    // What the other screen had no time for comes first.
    const order = [...controls.keys()].sort((one, other) => this.#tried.has(controls[one]) - this.#tried.has(controls[other]))
      .slice(0, mostControls);
    const isButton = index => controls[index].kind === 'button';
    const suspects = await this.#useEach(order.filter(isButton), controls);
    await this.#retry(suspects, controls);
    await this.#useEach(order.filter(index => !isButton(index)), controls);
  }

  /** Each from a fresh load. Which of them have changed nothing, and are not known from the other screen. */
  async #useEach(order, controls) {
    const suspects = [];
    for (const index of order) {
      if (this.#isLate)
        break;
      const control = controls[index];
      const outcome = await this.#useOne(index, control);
      if (this.#page.hasLeft)
        this.#leaving.add(index);
      if (outcome === 'changed')
        this.#tried.add(control, true);
      else if (outcome === 'same' && !this.#tried.has(control))
        suspects.push(index);
    }
    return suspects;
  }

  /** A "reset" has nothing to do in the beginning: what changes nothing is tried again when the others were used. Without
   *  time for that nothing is said. */
  async #retry(suspects, controls) {
    const open = new Map(suspects.map(index => [index, 0]));
    const order = [...controls.keys()].filter(index => !open.has(index));
    for (const what of ['7', 'сад'])
      await this.#retryAfter(order, what, open, controls);
    const inVain = new Map(this.#isLate ? [] : open); // What follows can only speak for a control.
    for (const index of order.toReversed().slice(0, mostPairs))
      await this.#retryAfter([index], '7', open, controls);
    for (const index of open.keys()) {
      if (inVain.get(index) >= leastRetries)
        this.#tried.add(controls[index], false);
    }
  }

  /** `open` are the suspects, with how often each was tried again in vain. */
  async #retryAfter(others, what, open, controls) {
    if (!open.size || this.#isLate)
      return;
    await this.#fresh(true);
    for (const index of others.filter(other => !this.#leaving.has(other))) {
      this.#page.doing = `использовать «${controls[index].name}»`;
      if (controls[index].kind === 'field')
        await this.#page.ask(`use.fill(${index}, '${what}')`);
      else
        await this.#act(index, controls[index]);
      if (this.#page.hasLeft) {
        this.#leaving.add(index);
        return this.#retryAfter(others, what, open, controls);
      }
      if (this.#isLate)
        return;
    }
    for (const [index, times] of [...open]) {
      const outcome = await this.#useOne(index, controls[index], true);
      if (outcome === 'same')
        open.set(index, times + 1);
      else if (outcome === 'changed')
        this.#tried.add(controls[index], open.delete(index));
      if (this.#isLate || this.#page.hasLeft)
        return;
    }
  }

  /** The page as after loading, and its controls. */
  async #fresh(force = false) {
    if (!this.#isFresh || force)
      await this.#page.load();
    this.#isFresh = true;
    return await this.#page.ask('use.take()') ?? [];
  }

  /** "changed", "same", or "none" when the control could not be reached. */
  async #useOne(index, control, asItIs = false) {
    if (!asItIs) {
      const controls = await this.#fresh();
      if (controls[index]?.name !== control.name)
        return 'none'; // The page is not the same after each load.
    }
    const effects = this.#page.effects;
    const isReached = control.kind === 'field' ? await this.#fillIn(index, control.name) : await this.#act(index, control);
    if (!isReached)
      return 'none';
    for (const ms of [soonMs, lateMs]) {
      await pause(ms);
      const changed = this.#page.hasLeft || this.#page.effects !== effects || await this.#page.ask(`use.hasChanged(${index})`);
      if (changed !== false) {
        this.#isFresh = false;
        return 'changed';
      }
    }
    return 'same';
  }

  async #fillIn(index, name) {
    this.#page.doing = `заполнить «${name}»`;
    await this.#page.ask(`use.remember(${index})`);
    for (const what of ['7', 'сад', '']) {
      if (!await this.#page.ask(`use.fill(${index}, '${what}')`))
        return false;
    }
    await this.#page.press('Enter');
    return true;
  }

  async #act(index, { kind, name }) {
    this.#page.doing = kind === 'button' ? `нажать «${name}»` : `использовать «${name}»`;
    if (kind === 'select') {
      await this.#page.ask(`use.remember(${index})`);
      return this.#page.ask(`use.choose(${index})`);
    }
    let point = await this.#page.ask(`use.aim(${index})`);
    if (!point) {
      await this.#page.press('Escape'); // Something may have been opened over it.
      point = await this.#page.ask(`use.aim(${index})`);
    }
    if (!point)
      return false;
    await this.#page.click(point, kind === 'canvas');
    return true;
  }
}
