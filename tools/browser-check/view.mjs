// Opens a page on a screen of one size, waits until it stands still, and looks at it.
import { prepareUse, tellEffects } from './controls.mjs';
import { tellHiddenErrors } from './hidden.mjs';
import { measurePage } from './measure.mjs';
import { oneLine } from './findings.mjs';
import { isOneColour } from './picture.mjs';
import { pause, within } from './time.mjs';
import { unexplained } from './unknown.mjs';
import { Use } from './use.mjs';
import { Watch } from './watch.mjs';

const loadLimitMs = 8000;

// A page stands still when nothing has happened for so long: time for what scripts do just after loading.
const stillMs = 700;

// Some pages never stand still.
const restlessLimitMs = 2500;

// A page that answers a simple question later than this is one that nobody can use.
const answerLimitMs = 4000;
const pauseLimitMs = 1500;

// Splash screens and things that fade in get this time to appear.
const blankLimitMs = 2000;

const closeLimitMs = 1000;

// For loading the page once more before it is used; and how long it may still change then.
const reloadLimitMs = 3000;
const reloadStillMs = 40;

const mostDialogs = 20;
const mostNavigations = 5;

const targetFilter = ['page', 'iframe', 'worker', 'shared_worker', 'service_worker'].map(type => ({ type }));
const autoAttach = { autoAttach: true, waitForDebuggerOnStart: true, flatten: true, filter: targetFilter };

const domains = ['Inspector', 'Runtime', 'Network', 'Log', 'Audits', 'Page', 'Debugger', 'Fetch'];

/** Nothing more is to be learnt from the page; what there was to say is said. */
class PageEnded extends Error {}

export class View {
  #connection;
  #site;
  #screen;
  #findings;
  #watch;
  #session; // Of the page itself; its frames and workers have their own.
  #target;
  #attached;
  #loadedAt = 0;
  #navigations = 0;
  #dialogs = 0;
  #isAsking = false;
  #onPaused = null;
  #scripts = new Map(); // Address by the id that the debugger uses.
  #end;
  #ended;
  #effectName = '';
  #useContext;
  #isUsing = false;
  #isLoading = false; // Once more, to be used.

  /** While the page is used: what it did that leaves no trace in the document, and whether it shows another address. */
  effects = 0;
  hasLeft = false;

  /** The page as it was judged, a PNG; null without one. */
  picture = null;

  constructor(connection, site, screen, findings) {
    this.#connection = connection;
    this.#site = site;
    this.#screen = screen;
    this.#findings = findings;
    this.#watch = new Watch(site, findings, screen);
    this.#ended = new Promise((_, reject) => { this.#end = reject; });
    this.#ended.catch(() => {});
  }

  /** Looks at the page and uses it, noting in `tried` what it has used, as one of so many screens that are left; what it
   *  finds is in the findings then. */
  async run(tried, screensLeft) {
    this.#connection.onEvent = event => this.#receive(event);
    await this.#send('Target.setAutoAttach', autoAttach, null);
    // Of its own, so that no view sees what another has stored.
    const { browserContextId } = await this.#send('Target.createBrowserContext', { disposeOnDetach: true }, null);
    await this.#send('Browser.setDownloadBehavior', { behavior: 'deny', browserContextId }, null);
    try {
      await Promise.race([this.#look(browserContextId, tried, screensLeft), this.#ended]);
    } catch (error) {
      if (!(error instanceof PageEnded))
        throw error;
    }
    this.#connection.onEvent = () => {};
    // Its last events must not reach the next view.
    const closed = this.#send('Target.disposeBrowserContext', { browserContextId }, null);
    await within(closed, closeLimitMs, '').catch(() => {});
    this.#watch.conclude();
  }

  async #look(browserContextId, tried, screensLeft) {
    const attached = new Promise(resolve => { this.#attached = resolve; });
    const { width, height } = this.#screen;
    await this.#send('Target.createTarget', { url: 'about:blank', browserContextId, width, height }, null);
    // Not earlier: what a page loads before its requests are judged is not judged at all.
    await attached;
    await within(this.#navigate(), loadLimitMs, 'браузер не открывает страницу');
    await this.#untilStill();
    await this.#judge();
    // What is broken when it opens, or waits for scripts that are not there, cannot be used.
    if (!this.#findings.empty || this.#watch.isIncomplete)
      return;
    if (!await this.#prepareUse())
      return;
    await new Use(this, tried, screensLeft).run();
    this.#watch.conclude();
    await this.#excuse();
  }

  /** False when there is nothing to use. */
  async #prepareUse() {
    if (!await this.#enterUse())
      return false;
    this.#isUsing = true;
    this.#effectName = `e${crypto.randomUUID().replaceAll('-', '')}`;
    await this.#send('Runtime.addBinding', { name: this.#effectName });
    await this.#send('Page.addScriptToEvaluateOnNewDocument', { source: `(${tellEffects})('${this.#effectName}')` });
    return true;
  }

  /** Makes the world that has `use`. How many controls there are. */
  async #enterUse() {
    this.#useContext = (await this.#send('Page.createIsolatedWorld', { frameId: this.#target })).executionContextId;
    await this.ask(`(${prepareUse})()`);
    return (await this.ask('use.take()'))?.length ?? 0;
  }

  /** Opens the page anew, without what it has stored. */
  async load() {
    this.#watch.doing = '';
    await this.ask('use.forget()');
    // What was found while it loaded is known, and what the page says while it goes is no fault.
    this.#isLoading = this.#watch.isMuted = true;
    this.#navigations = this.#dialogs = this.#loadedAt = 0;
    await within(this.#navigate(), reloadLimitMs, 'браузер не открывает страницу');
    const limit = performance.now() + reloadLimitMs;
    while ((!this.#loadedAt || this.#watch.pending.length) && performance.now() < limit)
      await pause(10);
    await pause(reloadStillMs);
    this.#isLoading = this.hasLeft = false;
    await this.#enterUse();
  }

  /** The value of an expression in the world that has `use`; undefined when the page has left. */
  async ask(expression) {
    if (!this.#useContext || this.hasLeft)
      return undefined;
    return this.#answerOf(this.#valueOf(expression, this.#useContext).catch(error => {
      this.hasLeft = true;
      return void error;
    }));
  }

  /** What is being done to the page, for the findings that follow from it. */
  set doing(text) {
    this.#watch.doing = text;
    this.#watch.isMuted = false;
    this.#dialogs = 0;
  }

  /** A click as by a hand, or a short stroke. */
  async click({ x, y }, isStroke) {
    const mouse = (type, more = {}) => this.#send('Input.dispatchMouseEvent', { type, x, y, button: 'left', clickCount: 1, ...more });
    await this.#answerOf((async () => {
      await mouse('mouseMoved', { button: 'none' });
      await mouse('mousePressed');
      if (isStroke)
        await mouse('mouseMoved', { x: x + 12, y: y + 12, buttons: 1 });
      await mouse('mouseReleased', isStroke ? { x: x + 12, y: y + 12 } : {});
    })());
  }

  async press(key) {
    const text = key === 'Enter' ? '\r' : undefined;
    const code = { key, code: key, windowsVirtualKeyCode: key === 'Enter' ? 13 : 27 };
    await this.#answerOf((async () => {
      await this.#send('Input.dispatchKeyEvent', { type: 'keyDown', text, ...code });
      await this.#send('Input.dispatchKeyEvent', { type: 'keyUp', ...code });
    })());
  }

  // The empty page that a tab begins with can be overtaken, and then it is its loading that ends the other one.
  async #navigate() {
    while ((await this.#send('Page.navigate', { url: this.#site.url })).errorText === 'net::ERR_ABORTED')
      await pause(50);
  }

  #send(method, params = {}, session = this.#session) {
    return this.#connection.send(method, params, session ?? undefined);
  }

  // Ends the look at a page that cannot be looked at any longer.
  #giveUp(text, details = []) {
    this.#watch.find(text, details);
    this.#findings.final = true;
    this.#end(new PageEnded());
  }

  #receive({ method, params, sessionId }) {
    const received = {
      'Target.attachedToTarget': () => this.#onAttached(params),
      'Target.detachedFromTarget': () => this.#onDetached(params),
      'Fetch.requestPaused': () => this.#onRequest(params, sessionId),
      'Page.javascriptDialogOpening': () => this.#onDialog(params, sessionId),
      'Page.windowOpen': () => this.#onWindow(params.url),
      'Page.frameNavigated': () => this.#onNavigated(params.frame),
      'Page.loadEventFired': () => this.#onLoaded(this.#target),
      'Page.frameStoppedLoading': () => this.#onLoaded(params.frameId),
      'Debugger.scriptParsed': () => sessionId === this.#session && this.#scripts.set(params.scriptId, params.url),
      'Debugger.paused': () => this.#onScriptPaused(params, sessionId),
      'Runtime.exceptionThrown': () => ++this.effects,
      'Inspector.targetCrashed': () => this.#onCrashed(sessionId),
    }[method];
    received?.();
    if (method !== 'Runtime.bindingCalled' || params.name !== this.#effectName)
      return this.#watch.see(method, params);
    ++this.effects;
  }

  // Each of them is held until it has got its orders.
  #onAttached({ sessionId, targetInfo }) {
    if (targetInfo.type === 'page' && this.#session)
      return this.#connection.tell('Target.closeTarget', { targetId: targetInfo.targetId }); // A window it has opened.
    const orders = domains.map(domain => this.#send(`${domain}.enable`, {}, sessionId));
    orders.push(this.#send('Target.setAutoAttach', autoAttach, sessionId));
    if (['page', 'iframe'].includes(targetInfo.type))
      orders.push(...this.#unhide(sessionId));
    if (targetInfo.type === 'page')
      orders.push(...this.#takePage(sessionId, targetInfo.targetId));
    orders.push(this.#send('Runtime.runIfWaitingForDebugger', {}, sessionId));
    if (targetInfo.type === 'page')
      Promise.all(orders).then(this.#attached, this.#end);
    else
      Promise.allSettled(orders); // A worker knows some of them only.
  }

  #takePage(session, target) {
    this.#session = session;
    this.#target = target;
    const { width, height, mobile } = this.#screen;
    const metrics = { width, height, mobile, deviceScaleFactor: 1 };
    return [
      this.#send('Emulation.setDeviceMetricsOverride', metrics),
      this.#send('Emulation.setTouchEmulationEnabled', { enabled: mobile }),
    ];
  }

  // A script of the page must neither find nor guess what reports its errors.
  #unhide(session) {
    const name = `f${crypto.randomUUID().replaceAll('-', '')}`;
    return [
      this.#send('Runtime.addBinding', { name }, session),
      this.#send('Page.addScriptToEvaluateOnNewDocument', { source: `(${tellHiddenErrors})('${name}')` }, session),
    ];
  }

  #onDetached({ sessionId }) {
    if (sessionId === this.#session)
      this.#giveUp('Страница закрывает свою вкладку.');
  }

  #onCrashed(sessionId) {
    if (sessionId === this.#session)
      this.#giveUp('Страница роняет вкладку браузера: скорее всего, ей не хватает памяти.');
  }

  #onRequest({ requestId, request, frameId, resourceType }, session) {
    const refusal = this.#site.refusal(request.url);
    if (!refusal)
      return this.#connection.tell('Fetch.continueRequest', { requestId }, session);
    const leaves = resourceType === 'Document' && frameId === this.#target;
    if (leaves && this.#isUsing)
      ++this.effects; // It was told to.
    else if (leaves)
      this.#watch.find(`Страница сама переходит на ${this.#site.nameOf(request.url)}: ${refusal}.`);
    // A page that cannot leave stays, and the rest of it can be judged; another reason would put an error page there.
    const errorReason = leaves ? 'Aborted' : 'AccessDenied';
    this.#connection.tell('Fetch.failRequest', { requestId, errorReason }, session);
  }

  #onDialog({ type, message }, session) {
    const isLeaving = type === 'beforeunload';
    if (this.#isUsing)
      return this.#onAnswer(type, session);
    this.#isAsking ||= type === 'confirm' || type === 'prompt';
    if (!isLeaving)
      this.#watch.note(`Окно ${type}() при загрузке, закрыто без ответа: «${oneLine(message, 100)}».`);
    if (++this.#dialogs > mostDialogs)
      return this.#giveUpDialogs(type);
    this.#connection.tell('Page.handleJavaScriptDialog', { accept: isLeaving }, session);
  }

  // A person who has asked for it reads it and agrees, and sometimes not.
  #onAnswer(type, session) {
    ++this.effects;
    if (++this.#dialogs > mostDialogs && (type === 'alert' || this.#dialogs > 2 * mostDialogs))
      return this.#giveUp(`Страница открывает окна ${type}() одно за другим.`);
    const accept = type === 'beforeunload' || this.#dialogs % 4 !== 0;
    this.#connection.tell('Page.handleJavaScriptDialog', { accept, promptText: '7' }, session);
  }

  // What a person answers can end the questions; messages without end keep everybody from the page.
  #giveUpDialogs(type) {
    if (!this.#isAsking)
      return this.#giveUp(`Страница открывает окна ${type}() одно за другим.`);
    this.#findings.leaveUnchecked('страница ждёт ответа в окнах prompt() и confirm() и без него не показывается');
    this.#findings.final = true;
    this.#end(new PageEnded());
  }

  #onWindow(url) {
    ++this.effects;
    if (this.#isUsing)
      return;
    this.#watch.find(`Страница при загрузке открывает окно ${this.#site.nameOf(url)}: браузеры это запрещают. Открывай `
                     + 'окно только по нажатию.');
  }

  #onNavigated({ parentId, url }) {
    if (parentId)
      return;
    if (this.#isLoading) {
      this.#loadedAt = 0;
      return;
    }
    if (this.#isUsing) {
      this.#loadedAt = 0;
      this.hasLeft = true;
      ++this.effects;
      // Another page has a check of its own.
      this.#watch.isMuted ||= url.split('#')[0] !== this.#site.url.split('#')[0];
      return;
    }
    this.#loadedAt = 0;
    if (++this.#navigations > mostNavigations)
      this.#giveUp('Страница без конца перезагружается или переходит с адреса на адрес.');
  }

  // The event of loading does not come on a page that wanted to leave before.
  #onLoaded(frame) {
    if (frame === this.#target)
      this.#loadedAt ||= performance.now();
  }

  // Nobody has asked for a stop at a `debugger` statement.
  #onScriptPaused({ callFrames }, session) {
    if (this.#onPaused)
      this.#onPaused(callFrames.map(({ location }) => ({ url: this.#scripts.get(location.scriptId), ...location })));
    else
      this.#connection.tell('Debugger.resume', {}, session);
  }

  async #untilStill() {
    const started = performance.now();
    for (;;) {
      await pause(50);
      if (this.#findings.final)
        throw new PageEnded();
      const now = performance.now();
      const still = !this.#watch.pending.length && now - this.#watch.lastActivity > stillMs;
      if (this.#loadedAt && (now - this.#loadedAt > restlessLimitMs || (still && now - this.#loadedAt > stillMs)))
        return;
      if (now - started > loadLimitMs)
        return this.#loadedAt || this.#reportSlowLoad();
    }
  }

  async #reportSlowLoad() {
    if (await this.#ask('document.readyState') === 'complete')
      return;
    const pending = this.#watch.pending.slice(0, 5);
    this.#findings.final = true; // Another try would take as long.
    this.#watch.find(`Страница не загрузилась за ${loadLimitMs / 1000} с.`, pending.map(name => `ждёт: ${name}`));
  }

  /** The value of an expression in the page. A page that does not answer is given up. */
  async #ask(expression) {
    return this.#answerOf(this.#evaluate(expression));
  }

  async #answerOf(promise) {
    try {
      return await within(promise, answerLimitMs, 'hangs');
    } catch (error) {
      if (error.message === 'hangs')
        await this.#reportHang();
      return undefined; // It has left for another address meanwhile.
    }
  }

  // In a world of its own, where the page's scripts have not put anything in place of what every page has.
  async #evaluate(expression) {
    const { executionContextId: contextId } = await this.#send('Page.createIsolatedWorld', { frameId: this.#target });
    return this.#valueOf(expression, contextId);
  }

  async #valueOf(expression, contextId) {
    return (await this.#send('Runtime.evaluate', { expression, contextId, returnByValue: true })).result.value;
  }

  async #reportHang() {
    const places = this.#watch.places(await this.#whereItRuns());
    if (places.length)
      this.#giveUp('Скрипт занимает страницу без конца, она не отвечает. Он сейчас здесь:', places);
    else
      this.#giveUp('Страница не отвечает: она слишком велика или перегружена.');
    throw new PageEnded();
  }

  // Stops the script that does not let the page answer.
  async #whereItRuns() {
    const paused = new Promise(resolve => { this.#onPaused = resolve; });
    this.#connection.tell('Debugger.pause', {}, this.#session);
    return within(paused, pauseLimitMs, '').catch(() => []);
  }

  async #judge() {
    const limit = performance.now() + blankLimitMs;
    let facts;
    let blank;
    do {
      facts = await this.#ask(`(${measurePage})(${this.#screen.width})`) ?? facts;
      blank = facts && (!facts.content || await this.#showsOneColour());
    } while ((blank || !facts) && performance.now() < limit && await pause(300) === undefined);
    this.#watch.conclude(); // What is missing is the cause of what is seen, so it comes first.
    await this.#excuse();
    if (facts)
      this.#report(facts, blank);
    else
      this.#watch.note('Как выглядит страница, проверить не удалось.');
  }

  // The network is closed for the check alone: what follows from that is no fault of the page.
  async #excuse() {
    const doubts = this.#watch.doubts;
    if (!doubts.length)
      return;
    const sources = new Map();
    for (const [scriptId, url] of this.#scripts) {
      if (url && !this.#site.refusal(url))
        sources.set(scriptId, await this.#sourceOf(scriptId));
    }
    for (const doubt of unexplained(doubts, sources))
      this.#watch.excuse(doubt);
  }

  async #sourceOf(scriptId) {
    const answer = this.#send('Debugger.getScriptSource', { scriptId });
    return within(answer, answerLimitMs, '').then(({ scriptSource }) => scriptSource, () => '');
  }

  async #showsOneColour() {
    const shot = this.#send('Page.captureScreenshot', { format: 'png' });
    try {
      this.picture = Buffer.from((await within(shot, answerLimitMs, 'no picture')).data, 'base64');
      return isOneColour(this.picture);
    } catch {
      return false; // It says nothing about the page that there is no picture of it.
    }
  }

  #report({ width, overflows, scaled, tooWide }, blank) {
    if (blank && this.#watch.isIncomplete)
      this.#findings.leaveUnchecked('без скриптов из интернета на экране ничего не видно');
    else if (blank)
      this.#watch.find('Страница пуста: на экране ничего не видно.');
    if (overflows)
      this.#watch.find(`Страница шире экрана: ${width} вместо ${this.#screen.width} пикселей, появляется прокрутка `
                       + 'вбок.', tooWide);
    if (scaled)
      this.#watch.note('Нет <meta name="viewport" content="width=device-width, initial-scale=1">: телефон показывает '
                       + 'страницу мелко.');
  }
}
