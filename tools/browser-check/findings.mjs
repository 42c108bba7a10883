// What was found on a page, and how it is told to the model that writes the code.

// Of the findings in a report. Who reads it gets its last 16000 characters; the notes come after this.
const mostCharacters = 10000;

const mostFindings = 20;
const mostNotes = 10;
const mostUnchecked = 10;
const mostDetails = 6;
const longestLine = 400;

/** The text on one line, cut to a length at which a page cannot flood the report. */
export function oneLine(text, limit = longestLine) {
  const line = String(text).slice(0, 4 * limit).replace(/[\s\p{Cc}]+/gu, ' ').trim();
  return line.length > limit ? `${line.slice(0, limit)}…` : line;
}

/** Findings, what a project has to mend, notes, what is only worth knowing, and what could not be checked here. What is
 *  the same is kept once. */
export class Findings {
  #entries = new Map();
  #notes = new Set();
  #unchecked = new Set();
  #left = 0;

  /** Nothing more can be learnt from this page: it hangs, crashed or does not stay. */
  final = false;

  /** How many files of the project could not be loaded. */
  missing = 0;

  get empty() {
    return this.#entries.size === 0;
  }

  /** The first finding, to quote it. */
  get first() {
    return this.#entries.values().next().value?.text;
  }

  /** `details` are lines below the text, `cause` what was done to the page before. Returns a key for retract(). */
  add(screen, text, details = [], cause = '') {
    const line = oneLine(text);
    const lines = details.slice(0, mostDetails).map(detail => oneLine(detail));
    const key = [line, ...lines].join('\n');
    const entry = this.#entries.get(key) ?? { text: line, lines, cause, screens: new Set(), times: 0 };
    if (!this.#entries.has(key) && this.#entries.size >= mostFindings) {
      ++this.#left;
      return key;
    }
    entry.screens.add(screen);
    ++entry.times;
    this.#entries.set(key, entry);
    return key;
  }

  /** The page has made good what was added under this key: a rejection that got its handler late. */
  retract(key) {
    const entry = this.#entries.get(key);
    if (entry && --entry.times === 0)
      this.#entries.delete(key);
  }

  note(text) {
    if (this.#notes.size < mostNotes)
      this.#notes.add(oneLine(text));
  }

  leaveUnchecked(text) {
    if (this.#unchecked.size < mostUnchecked)
      this.#unchecked.add(oneLine(text));
  }

  /** The whole report about a page of this name that was shown on these screens. */
  report(page, screens) {
    const part = this.#unchecked.size ? 'проверена не полностью, ошибок не найдено' : 'открывается без ошибок';
    const verdict = this.empty
      ? `Страница ${page} ${part} (${screens.map(screen => screen.title).join(', ')}).`
      : `Проверка страницы ${page} в браузере нашла ошибки:`;
    const rest = [...list('Замечания', this.#notes), ...list('Не проверено', this.#unchecked)];
    return [verdict, ...this.#findingLines(screens), ...rest].join('\n') + '\n';
  }

  #findingLines(screens) {
    const paragraphs = [...this.#entries.values()].map((entry, index) => [
      '',
      `${index + 1}. ${entry.text}${this.#where(entry, screens)}`,
      ...entry.lines.map(line => `   ${line}`),
      ...entry.cause ? [`   что сделано: ${entry.cause}`] : [],
    ]);
    let length = 0;
    const shown = paragraphs.filter(lines => (length += lines.join('\n').length) <= mostCharacters);
    const left = this.#left + paragraphs.length - shown.length;
    return [...shown.flat(), ...(left ? ['', `Есть и другие ошибки, не показано: ${left}.`] : [])];
  }

  // A fault of one screen alone is one of the layout, as a rule: say which.
  #where(entry, screens) {
    const shown = screens.filter(screen => entry.screens.has(screen));
    const some = shown.length > 0 && shown.length < screens.length;
    return some ? ` [${shown.map(screen => screen.title).join(', ')}]` : '';
  }
}

function list(heading, lines) {
  return lines.size ? ['', `${heading}:`, ...[...lines].map(line => `- ${line}`)] : [];
}
