// Turns what the browser tells about a page into findings.
import { oneLine } from './findings.mjs';
import { unknownName } from './unknown.mjs';

// The kinds of requests by which a page talks with a program on a server.
const talking = ['XHR', 'Fetch', 'EventSource', 'Ping', 'WebSocket'];

// A page can make requests and errors without end.
const mostRequests = 2000;
const mostDoubts = 2000;

// Errors of programming. Others that are printed, such as one about the network, the page knows about and deals with.
const programmingErrors = /^(Type|Reference|Syntax|Range)Error: (?!Failed to fetch)/;

/** Watches one page on one screen. */
export class Watch {
  #site;
  #findings;
  #screen;
  #requests = new Map();
  #exceptions = new Map();
  #doubts = [];

  /** What is being done to the page, so that what follows names its cause; empty while it loads. */
  doing = '';

  /** True while another page is shown: what that one says is none of this one's. */
  isMuted = false;

  /** When a request last began, went on or ended, in milliseconds of performance.now(). */
  lastActivity = performance.now();

  constructor(site, findings, screen) {
    this.#site = site;
    this.#findings = findings;
    this.#screen = screen;
  }

  /** Names of files that are still being loaded; of documents the browser says itself when they are there. */
  get pending() {
    const counts = ({ url, done, type }) => url && !done && type !== 'Document' && !talking.includes(type);
    return [...this.#requests.values()].filter(counts).map(({ url }) => this.#site.nameOf(url));
  }

  /** Adds what is known about requests only after a while; what was added before is not added again. */
  conclude() {
    for (const request of this.#requests.values()) {
      if (request.url && request.failure && !request.reported)
        this.#report(request);
      request.reported = Boolean(request.failure);
    }
  }

  /** Errors that may follow from scripts on the internet which the check has refused, in the order in which they came:
   *  {key, text, place, name, scriptId}. `name` is what was not known; empty when the error names such a script. */
  get doubts() {
    const refused = this.#outerScripts.map(({ url }) => url);
    return this.#doubts.filter(({ name, text }) => refused.some(url => name || text.includes(url)));
  }

  /** True when the page lacks scripts on the internet. What it shows may be theirs, and many libraries call the page
   *  instead of being called: no error tells then. */
  get isIncomplete() {
    return this.#outerScripts.length > 0;
  }

  get #outerScripts() {
    return [...this.#requests.values()].filter(({ url, type }) => type === 'Script' && !this.#site.isLocal(url)
                                                                  && this.#site.refusal(url));
  }

  /** Takes back what is no fault of the page. */
  excuse({ key, text, place }) {
    this.#findings.retract(key);
    this.#leave(place ? `${text} (${place})` : text);
  }

  #leave(text) {
    this.#findings.leaveUnchecked(this.#site.shortened(text));
  }

  find(text, details = []) {
    if (this.isMuted)
      return '';
    return this.doing ? this.#findings.add(null, this.#site.shortened(text), details, this.doing)
                      : this.#findings.add(this.#screen, this.#site.shortened(text), details);
  }

  note(text) {
    if (!this.isMuted)
      this.#findings.note(this.#site.shortened(text));
  }

  /** An event of the browser, of the page itself or of one of its workers. */
  see(method, params) {
    const seen = {
      'Fetch.requestPaused': () => this.#asked(params),
      'Network.requestWillBeSent': () => this.#started(params),
      'Network.responseReceived': () => this.#answered(params),
      'Network.loadingFinished': () => this.#finished(params.requestId),
      'Network.loadingFailed': () => this.#failed(params),
      'Network.webSocketCreated': () => this.#started({ ...params, request: params, type: 'WebSocket' }),
      'Network.webSocketHandshakeResponseReceived': () => this.#finished(params.requestId),
      'Network.webSocketFrameError': () => this.#failed({ ...params, errorText: params.errorMessage }),
      'Network.webSocketClosed': () => this.#finished(params.requestId),
      tooLong: () => this.find('Страница выводит в консоль или в сообщение об ошибке текст больше 16 МБ.'),
      'Runtime.exceptionThrown': () => this.#thrown(params.exceptionDetails),
      'Runtime.exceptionRevoked': () => this.#revoked(params.exceptionId),
      'Runtime.bindingCalled': () => this.#hidden(JSON.parse(params.payload)),
      'Runtime.consoleAPICalled': () => this.#printed(params),
      'Log.entryAdded': () => this.#logged(params.entry),
      'Audits.issueAdded': () => this.#audited(params.issue),
    }[method];
    if (method.startsWith('Network.'))
      this.lastActivity = performance.now();
    seen?.();
  }

  /** Lines that show where a script was: file, line, column and what stands there. */
  places(frames) {
    const known = frames.filter(frame => frame.url);
    return known.map(({ url, lineNumber, columnNumber }) => this.#place(url, lineNumber, columnNumber));
  }

  #place(url, line, column) {
    const source = this.#site.sourceOf(url, line, column ?? 0);
    const at = column === undefined ? '' : `:${column + 1}`;
    return `${this.#site.nameOf(url)}:${line + 1}${at}${source && ` | ${source}`}`;
  }

  // The events of one request come from different parts of the browser, in any order.
  #request(id) {
    if (!this.#requests.has(id) && this.#requests.size < mostRequests)
      this.#requests.set(id, {});
    return this.#requests.get(id) ?? {};
  }

  // Comes surely and first; the rest can come without the event that names the address.
  #asked({ networkId, request, resourceType }) {
    if (networkId)
      Object.assign(this.#request(networkId), { url: request.url, type: resourceType });
  }

  #started({ requestId, request, type, initiator }) {
    Object.assign(this.#request(requestId), { url: request.url, type, initiator });
  }

  #finished(requestId) {
    this.#request(requestId).done = true;
  }

  #answered({ requestId, response }) {
    const missing = response.status === 404;
    if (response.status >= 400)
      this.#request(requestId).failure = missing ? 'такого файла в проекте нет' : `ответ HTTP ${response.status}`;
  }

  #failed({ requestId, canceled, errorText, blockedReason, corsErrorStatus }) {
    const request = this.#request(requestId);
    request.done = true;
    if (canceled)
      return;
    const policy = blockedReason === 'csp' && 'это запрещает Content-Security-Policy страницы';
    const origin = corsErrorStatus && `браузер не даёт читать чужое (CORS, ${corsErrorStatus.corsError})`;
    request.failure ??= policy || origin || errorText;
  }

  #report({ url, type, initiator, failure }) {
    const text = `Не загружается ${this.#site.nameOf(url)}: ${this.#site.refusal(url) || failure}.`;
    if (!this.#site.isLocal(url) && type === 'Script')
      this.#leave(`скрипт ${this.#site.nameOf(url)}: ${this.#site.refusal(url) || failure}`);
    else if (!this.#site.isLocal(url))
      this.note(`${text} Страница должна работать и без интернета.`);
    else if (isCall(url, type))
      this.note(`${text} Похоже на запрос к программе на сервере: при проверке она не запущена.`);
    else
      this.#miss(text, this.#origin(url, initiator));
  }

  #miss(text, places) {
    ++this.#findings.missing;
    this.find(text, places);
  }

  // The browser names the place that its parser has reached, often further on: better is the one with the file's name.
  #origin(url, initiator) {
    if (initiator?.stack)
      return this.places(initiator.stack.callFrames).slice(0, 2);
    const from = initiator?.url ?? this.#site.url;
    const found = this.#site.placeOf(from, url.split(/[?#]/)[0].split('/').pop());
    return this.places([{ lineNumber: 0, ...initiator, url: from, ...found }]);
  }

  #thrown(details) {
    const rejected = details.text.includes('in promise');
    const text = details.exception?.description ?? details.exception?.value ?? details.text;
    const what = rejected ? 'Необработанный отказ Promise' : 'Ошибка JavaScript';
    const frames = details.stackTrace?.callFrames ?? [];
    this.#exceptions.set(details.exceptionId, this.#findError(what, text, frames.length ? frames : [details], 4));
  }

  #findError(what, text, frames, most) {
    const message = String(text).split('\n    at ')[0].replace(/^Uncaught /, '');
    const places = this.places(frames).slice(0, most);
    const key = this.find(`${what}: ${message}`, places);
    const { url, lineNumber, columnNumber } = frames[0] ?? {};
    const name = unknownName(message, url ? this.#site.before(url, lineNumber, columnNumber) : '');
    if (this.#doubts.length < mostDoubts && (name || message.includes('://')))
      this.#doubts.push({ key, text: message, place: places[0], name, scriptId: frames.at(-1)?.scriptId });
    return key;
  }

  // The browser says nothing of an error that the page has declared to be dealt with, as by window.onerror.
  #hidden({ rejected, message, url, line, column }) {
    const what = rejected ? 'Необработанный отказ Promise, скрытый страницей' : 'Ошибка JavaScript, скрытая страницей';
    this.#findError(what, message, url ? [{ url, lineNumber: line - 1, columnNumber: column - 1 }] : [], 1);
  }

  #revoked(exceptionId) {
    this.#findings.retract(this.#exceptions.get(exceptionId));
  }

  // Many pages catch what goes wrong and print it, and then do not work, without any other sign.
  #printed({ type, args, stackTrace }) {
    if (type !== 'error' && type !== 'assert')
      return;
    const texts = args.map(argument => String(argument.description ?? argument.value ?? argument.type));
    const error = texts.find((text, index) => args[index].subtype === 'error' && programmingErrors.test(text));
    if (error)
      this.#findError('Ошибка JavaScript, выведена через console.error', error, stackTrace?.callFrames ?? [], 2);
    else
      this.note(`console.${type}: ${oneLine(texts.join(' '), 200)}`);
  }

  // Failed requests and what workers say come as events of their own.
  #logged({ source, level, text, url, category }) {
    if (level !== 'error' || source === 'network' || source === 'worker' || category === 'cors')
      return;
    if (source === 'javascript')
      this.find(`Браузер не принимает ${this.#site.nameOf(url ?? '')}: ${text}`);
    else
      this.note(`Браузер сообщает: ${oneLine(text, 300)}`);
  }

  #audited({ details }) {
    const issue = details.contentSecurityPolicyIssueDetails;
    if (!issue || issue.isReportOnly || issue.blockedURL)
      return;
    const place = issue.sourceCodeLocation;
    this.find(`Content-Security-Policy страницы не даёт выполнить её код: ${issue.violatedDirective}.`,
              place ? [this.#place(place.url, place.lineNumber, place.columnNumber)] : []);
  }
}

// A file that a page reads has an ending in its name, as a rule; what a program answers has none.
function isCall(url, type) {
  return talking.includes(type) && !/\.\w+$/.test(url.split(/[?#]/)[0].split('/').pop());
}
