/** Resolves after so many milliseconds. */
export const pause = ms => new Promise(resolve => setTimeout(resolve, ms));

/** The promise, or after `ms` milliseconds a rejection with this text. */
export function within(promise, ms, text) {
  let timer;
  const limit = new Promise((_, reject) => { timer = setTimeout(() => reject(new Error(text)), ms); });
  return Promise.race([promise, limit]).finally(() => clearTimeout(timer));
}
