// Which errors follow from scripts of other computers that were not loaded, and which are the page's own.

const identifier = '[\\p{ID_Start}$_][\\p{ID_Continue}$]*';
const globalObject = '(?:window|self|globalThis)';

const ownUse = new RegExp(`^TypeError: ${globalObject}\\.(${identifier}) is not a (?:function|constructor)$`, 'u');
const ownRead = new RegExp(`(?<![.\\w$])${globalObject}\\.(${identifier})\\.$`, 'u');
const noName = new RegExp(`^ReferenceError: (?:(${identifier}) is not defined$`
                          + `|Cannot access '(${identifier})' before initialization$)`, 'u');

/** The name that nobody has defined, where the error says so; or nothing. `before` is what stands in the line before
 *  the place of the error: for `window.Chart.register()` the message does not name what is missing. */
export function unknownName(message, before) {
  const [, missing, early] = noName.exec(message) ?? [];
  const read = /^TypeError: Cannot read properties of undefined/.test(message) && ownRead.exec(before)?.[1];
  return missing ?? early ?? ownUse.exec(message)?.[1] ?? (read || undefined);
}

/** True when the script makes this name known. */
export function defines(source, name) {
  const word = name.replaceAll('$', '\\$');
  const end = '(?![\\p{ID_Continue}$])';
  return new RegExp(`\\b(?:var|let|const|class|function\\*?|import|as)\\s+${word}${end}`
                    + `|(?:(?<![.\\p{ID_Continue}$])|(?<![.\\p{ID_Continue}$])${globalObject}\\.)${word}\\s*=(?![=>])`,
                    'u').test(source);
}

/** Those of the errors that have no other reason than the missing scripts: no script of the page defines the name, or
 *  one would that has stopped at such an error itself. `sources` has the text of each script by its id. */
export function unexplained(doubts, sources) {
  const stopped = new Set();
  const found = new Set();
  const definers = name => [...sources].filter(([, source]) => defines(source, name)).map(([scriptId]) => scriptId);
  const isExcused = ({ name }) => !name || definers(name).every(scriptId => stopped.has(scriptId));
  for (let size = -1; size !== found.size;) {
    size = found.size;
    for (const doubt of doubts.filter(isExcused)) {
      found.add(doubt);
      stopped.add(doubt.scriptId);
    }
  }
  return [...found];
}
