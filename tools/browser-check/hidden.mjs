// Runs inside the page, as text, before any of its scripts: it sees nothing of this file but its argument.

/** Tells, by the function of this name, of errors that the page keeps from the browser: {rejected, message, url, line,
 *  column}. The function is gone then. */
export function tellHiddenErrors(name) {
  // What the page may put in place of them must not be used.
  const [tell, later, text, cut] = [globalThis[name], setTimeout, JSON.stringify, String];
  delete globalThis[name];

  // An error names its place in its second line at the earliest: «    at draw (http://127.0.0.1:80/game.js:3:14)».
  function placeOf(error) {
    const [, url, line, column] = /\n.*?((?:file|https?):\S+?):(\d+):(\d+)/.exec(error?.stack ?? '') ?? [];
    return { url, line: Number(line), column: Number(column) };
  }

  // Only when all listeners have run is it known whether one has declared the error to be dealt with.
  function report(event, facts) {
    later(() => {
      if (event.defaultPrevented)
        tell(text({ ...facts, message: cut(facts.message).slice(0, 2000) }));
    });
  }

  function guarded(listener) {
    return event => {
      try {
        listener(event);
      } catch {
        // The page throws what cannot even be read.
      }
    };
  }

  // The first listener: none of the page can stop the event before. That of an element, which could not load something,
  // cannot be declared to be dealt with.
  addEventListener('error', guarded(event => {
    const { message, filename: url, lineno: line, colno: column } = event;
    report(event, { message, url, line, column });
  }), true);
  addEventListener('unhandledrejection', guarded(event => {
    report(event, { rejected: true, message: event.reason, ...placeOf(event.reason) });
  }), true);
}
