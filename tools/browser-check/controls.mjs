// Runs inside the page, as text: these functions see nothing of this file but their arguments.

/** In the page's own world, before its scripts: tells, by the function of this name, when the page does something that
 *  leaves no trace in the document. The function is gone then. */
export function tellEffects(name) {
  const tell = globalThis[name];
  delete globalThis[name];

  function watch(owner, method, counts = () => true) {
    const original = owner?.[method];
    if (typeof original !== 'function')
      return;
    owner[method] = function (...values) {
      if (counts(...values))
        tell('effect');
      return Reflect.apply(original, this, values);
    };
  }

  const of = type => globalThis[type]?.prototype;
  for (const [owner, ...methods] of [
    [of('HTMLMediaElement'), 'play', 'pause', 'load'], [of('AudioScheduledSourceNode'), 'start', 'stop'],
    [of('BaseAudioContext'), 'createGain'], [of('AudioContext'), 'resume', 'suspend'],
    [of('SpeechSynthesis'), 'speak', 'cancel', 'pause'], [of('Clipboard'), 'writeText', 'write', 'readText'],
    [of('Document'), 'execCommand', 'exitFullscreen'], [of('Element'), 'requestFullscreen', 'requestPointerLock'],
    [of('Navigator'), 'share', 'vibrate', 'sendBeacon'], [of('Worker'), 'postMessage'],
    [of('WebSocket'), 'send'], [of('IDBFactory'), 'open', 'deleteDatabase'], [of('IDBObjectStore'), 'put', 'add', 'delete', 'clear'],
    [of('History'), 'pushState', 'replaceState', 'back', 'forward', 'go'], [of('HTMLInputElement'), 'showPicker'],
    [of('HTMLAnchorElement'), 'click'], [of('Geolocation'), 'getCurrentPosition', 'watchPosition'], [URL, 'createObjectURL'],
    [globalThis.Notification, 'requestPermission'], [globalThis, 'print', 'open', 'setInterval', 'clearInterval', 'find']]) {
    for (const method of methods)
      watch(owner, method);
  }
  watch(globalThis, 'setTimeout', (_, ms) => ms >= 100);
  // What such a canvas shows cannot be read afterwards.
  watch(of('HTMLCanvasElement'), 'getContext', type => type !== '2d');
}

/** Puts what is needed to use the page into this world, as `use`. */
export function prepareUse() {
  const kinds = 'button, input, select, textarea, summary, canvas, [role=button], [role=tab], [role=switch], [onclick], '
    + '[contenteditable=true], a[href^="#"], a[href^="javascript:"], a:not([href])';
  const most = 60;
  const mostPlain = 8;
  const controls = [];
  let records = 0;
  let before;
  let focused;

  const observer = new MutationObserver(list => { records += list.length; });
  const all = root => [...root.querySelectorAll('*')].slice(0, 5000)
    .flatMap(element => [element, ...element.shadowRoot ? all(element.shadowRoot) : []]);

  function kindOf(element) {
    const tag = element.tagName.toLowerCase();
    const type = (element.type ?? '').toLowerCase();
    if (tag === 'button' || element.getAttribute('role') === 'button'
        || (tag === 'input' && ['button', 'submit', 'reset'].includes(type)))
      return 'button';
    if (tag === 'textarea' || (tag === 'input' && !['checkbox', 'radio', 'file', 'hidden', 'image'].includes(type)))
      return 'field';
    return tag === 'select' || tag === 'canvas' ? tag : type === 'file' || type === 'hidden' ? '' : 'other';
  }

  function isUsable(element) {
    const box = element.getBoundingClientRect();
    return box.width > 1 && box.height > 1 && element.checkVisibility({ opacityProperty: true, visibilityProperty: true })
      && !element.matches(':disabled, [aria-disabled=true], [readonly], [inert] *, [download]');
  }

  function nameOf(element) {
    const text = element.getAttribute('aria-label') || element.innerText || element.labels?.[0]?.innerText || element.title
      || element.placeholder || (element.tagName === 'INPUT' && kindOf(element) === 'button' && element.value) || element.id
      || element.name || element.tagName.toLowerCase();
    return text.replace(/\s+/g, ' ').trim().slice(0, 40);
  }

  function find() {
    const named = [...document.querySelectorAll(kinds)];
    // Boards and lists are made of plain elements, and a hand is all that tells that they can be used.
    const plain = [...(document.body ?? document).querySelectorAll('div, span, td, li')].slice(0, 3000)
      .filter(element => !element.closest(kinds) && getComputedStyle(element).cursor === 'pointer').slice(0, mostPlain);
    return [...named, ...plain].filter(element => kindOf(element) && isUsable(element)).slice(0, most);
  }

  function hash(text) {
    let value = 0;
    for (let at = 0; at < text.length; ++at)
      value = (value * 31 + text.charCodeAt(at)) | 0;
    return value;
  }

  function attempt(read) {
    try {
      return read();
    } catch {
      return ''; // Closed to this page, or a canvas with foreign pictures.
    }
  }

  function state() {
    const elements = all(document);
    return [
      hash(document.documentElement.outerHTML),
      ...elements.filter(element => 'value' in element || 'checked' in element)
        .map(element => `${element.value}${element.checked ?? ''}${element.selectedIndex ?? ''}`),
      ...elements.filter(element => element.scrollTop || element.scrollLeft).map(({ scrollTop, scrollLeft }) => scrollTop + scrollLeft),
      location.href, Math.round(scrollX), Math.round(scrollY), document.title,
      attempt(() => JSON.stringify(localStorage)), attempt(() => JSON.stringify(sessionStorage)), attempt(() => document.cookie),
      attempt(() => document.querySelectorAll(':popover-open, :modal').length),
      attempt(() => [...document.styleSheets].reduce((sum, sheet) => sum + sheet.cssRules.length, 0)),
      ...elements.filter(({ tagName }) => tagName === 'CANVAS').slice(0, 6).map(canvas => attempt(() => hash(canvas.toDataURL()))),
    ].join('\n');
  }

  const good = { email: 'a@b.example', url: 'https://a.example', tel: '+70000000000', date: '2026-01-15', time: '12:30',
    month: '2026-01', week: '2026-W03', 'datetime-local': '2026-01-15T12:30', color: '#336699' };

  /** What stands for a number, a word and nothing in a field of this type. */
  function valueFor(element, what) {
    if (what === '' || element.tagName === 'TEXTAREA' || !element.type)
      return what;
    if (good[element.type])
      return good[element.type];
    if (element.type !== 'number' && element.type !== 'range')
      return what;
    const [low, high] = [element.min, element.max].map(limit => limit === '' ? NaN : Number(limit));
    return String(Math.min(Math.max(7, isNaN(low) ? 7 : low), isNaN(high) ? 7 : high));
  }

  globalThis.use = {
    /** Takes the controls as they are now: [{kind, name}]. */
    take() {
      controls.splice(0, controls.length, ...find());
      return controls.map(element => ({ kind: kindOf(element), name: nameOf(element) }));
    },

    /** Where to click a control; null when something lies over it, or it is gone. Remembers how the page is now. */
    aim(index) {
      const element = controls[index];
      if (!element?.isConnected || !isUsable(element))
        return null;
      element.scrollIntoView({ block: 'center', inline: 'center', behavior: 'instant' });
      const box = element.getBoundingClientRect();
      const point = { x: box.left + box.width / 2, y: box.top + box.height / 2 };
      const hit = document.elementFromPoint(point.x, point.y);
      if (!hit || !(element.contains(hit) || hit.contains(element) || hit.shadowRoot?.contains(element)))
        return null;
      this.remember(index);
      return point;
    },

    remember(index) {
      before = state();
      focused = document.activeElement;
      observer.observe(document, { subtree: true, childList: true, attributes: true, characterData: true });
      for (const { shadowRoot } of all(document).filter(element => element.shadowRoot))
        observer.observe(shadowRoot, { subtree: true, childList: true, attributes: true, characterData: true });
      observer.takeRecords();
      records = 0;
    },

    /** Whether the page is another one than it was. */
    hasChanged(index) {
      records += observer.takeRecords().length;
      const active = document.activeElement;
      // That a control has the focus when it is used says nothing.
      const keepsFocus = !active || active === document.body || active === focused || controls[index].contains(active);
      return records > 0 || !keepsFocus || state() !== before;
    },

    fill(index, what) {
      const element = controls[index];
      if (!element?.isConnected || !isUsable(element))
        return false;
      element.focus({ preventScroll: true });
      if (element.isContentEditable)
        element.textContent = what;
      else
        element.value = valueFor(element, what);
      element.dispatchEvent(new InputEvent('input', { bubbles: true, data: what }));
      element.dispatchEvent(new Event('change', { bubbles: true }));
      return true;
    },

    choose(index) {
      const element = controls[index];
      if (!element?.isConnected || element.options.length < 2)
        return false;
      element.selectedIndex = (element.selectedIndex + 1) % element.options.length;
      element.dispatchEvent(new Event('input', { bubbles: true }));
      element.dispatchEvent(new Event('change', { bubbles: true }));
      return true;
    },

    forget() {
      attempt(() => localStorage.clear());
      attempt(() => sessionStorage.clear());
    },
  };
}
