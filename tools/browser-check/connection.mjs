// The DevTools protocol over a pair of pipes: JSON texts in both directions, each ended by a zero byte.

// A screenshot is the longest message that is wanted. A page can write a text of any length to its console; what is
// longer than this is dropped while it comes, so that the page does not decide how much memory we take.
const longestMessage = 16 * 1024 * 1024;

/** Cuts a stream into the messages of the protocol. */
class MessageReader {
  chunks = [];
  length = 0;

  constructor(onMessage) {
    this.onMessage = onMessage;
  }

  push(data) {
    for (let end; (end = data.indexOf(0)) >= 0; data = data.subarray(end + 1)) {
      this.#keep(data.subarray(0, end));
      this.#finishMessage();
    }
    this.#keep(data);
  }

  // The pieces are joined once a message is whole: joining at every piece would copy a long one thousands of times.
  #keep(piece) {
    this.length += piece.length;
    if (this.length > longestMessage)
      this.chunks = [];
    else if (piece.length)
      this.chunks.push(piece);
  }

  #finishMessage() {
    const tooLong = this.length > longestMessage;
    const whole = Buffer.concat(this.chunks);
    this.chunks = [];
    this.length = 0;
    this.onMessage(tooLong ? { method: 'tooLong', params: {} } : JSON.parse(whole.toString()));
  }
}

/** Commands to the browser and its events. */
export class Connection {
  #toBrowser;
  #waiting = new Map();
  #lastId = 0;
  #failure = null;

  /** Called with every event of every session: {method, params, sessionId}; with the method "tooLong" in place of one
   *  that was dropped for its length. */
  onEvent = () => {};

  constructor(toBrowser, fromBrowser) {
    this.#toBrowser = toBrowser;
    const reader = new MessageReader(message => this.#receive(message));
    fromBrowser.on('data', data => reader.push(data));
    // A browser that dies closes its ends; that it is dead is told by fail().
    fromBrowser.on('error', () => {});
    toBrowser.on('error', () => {});
  }

  /** Resolves with the answer. Rejects when the browser refuses the command or is gone. Commands of one session are
   *  carried out in the order in which they were sent. */
  send(method, params = {}, sessionId = undefined) {
    if (this.#failure)
      return Promise.reject(this.#failure);
    return new Promise((resolve, reject) => {
      const id = ++this.#lastId;
      this.#waiting.set(id, { method, resolve, reject });
      this.#toBrowser.write(JSON.stringify({ id, method, params, sessionId }) + '\0');
    });
  }

  /** Sends where the answer does not matter, as the thing that the command is for may be gone already. */
  tell(method, params = {}, sessionId = undefined) {
    this.send(method, params, sessionId).catch(() => {});
  }

  /** Ends all that wait for an answer, now and later. */
  fail(error) {
    this.#failure = error;
    for (const { reject } of this.#waiting.values())
      reject(error);
    this.#waiting.clear();
  }

  #receive(message) {
    if (!message.id)
      return this.onEvent(message);
    const call = this.#waiting.get(message.id);
    this.#waiting.delete(message.id);
    if (message.error)
      call?.reject(new Error(`${call.method}: ${message.error.message}`));
    else
      call?.resolve(message.result);
  }
}
