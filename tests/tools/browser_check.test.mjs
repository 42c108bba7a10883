// The check in a real browser: what it says about pages, what a page can reach, and what is left behind.
//
//   BROWSER_CHECK=.../browser-check.mjs node --test browser_check.test.mjs
import assert from 'node:assert/strict';
import { spawn } from 'node:child_process';
import { accessSync, chmodSync, constants, existsSync, mkdirSync, mkdtempSync, readdirSync, readFileSync, rmSync,
  symlinkSync, utimesSync, writeFileSync } from 'node:fs';
import { createServer } from 'node:net';
import { networkInterfaces, tmpdir } from 'node:os';
import { delimiter, dirname, join } from 'node:path';
import { after, describe, test } from 'node:test';
import { fileURLToPath } from 'node:url';
import { deflateSync } from 'node:zlib';

const script = process.env.BROWSER_CHECK;
const tools = join(dirname(script), 'browser-check');
const pages = join(dirname(fileURLToPath(import.meta.url)), 'pages');
const latestEndMs = 30000; // The caller's limit is 35 s.
const tag = `VESK_TEST_TAG=${process.pid}-${Date.now()}`;

const names = 'microsoft-edge microsoft-edge-stable chromium chromium-browser google-chrome google-chrome-stable '
  + 'brave-browser brave';
const browser = names.split(' ').flatMap(name => process.env.PATH.split(delimiter).map(path => join(path, name)))
  .find(path => {
    try {
      return accessSync(path, constants.X_OK) === undefined;
    } catch {
      return false;
    }
  });
const skip = browser ? false : 'there is no browser';

// All that is made here goes at the end.
const folder = mkdtempSync(join(tmpdir(), 'vesk-pages-'));
after(() => rmSync(folder, { recursive: true, force: true }));

function save(name, text) {
  mkdirSync(dirname(join(folder, name)), { recursive: true });
  writeFileSync(join(folder, name), text);
  return join(folder, name);
}

function savePage(name, body) {
  const head = '<!doctype html><meta charset=utf-8><meta name=viewport content="width=device-width"><h1>Страница</h1>';
  return save(name, head + body);
}

/** One run of the check, with folders of its own for temporary files and for what belongs to the user. */
class Check {
  home = mkdtempSync(join(folder, 'h'));
  temporary = mkdtempSync(join(tmpdir(), 'vesk-t')); // Short: a browser makes sockets in it.

  run(page, { program = browser, project, environment = {} } = {}) {
    const [tagName, tagValue] = tag.split('=');
    const own = { HOME: this.home, TMPDIR: this.temporary, [tagName]: tagValue };
    const started = performance.now();
    this.report = '';
    this.process = spawn(process.execPath, page ? [script, program, page, ...project ? [project] : []] : [script],
                         { env: { ...process.env, ...own, ...environment }, stdio: ['ignore', 'pipe', 'inherit'] });
    this.process.stdout.on('data', text => { this.report += text; });
    return new Promise(resolve => this.process.on('close', (code, signal) => {
      this.tookMs = performance.now() - started;
      this.code = code ?? signal;
      resolve(this);
    }));
  }

  left() {
    return [...readdirSync(this.temporary), ...readdirSync(this.home)];
  }

  /** To be called at the end: nothing has been left. */
  leavesNothing() {
    assert.deepEqual(this.left(), []);
    rmSync(this.temporary, { recursive: true });
  }

  says(...texts) {
    for (const text of texts)
      assert.ok(this.report.includes(text), `no «${text}» in:\n${this.report}`);
  }

  keepsSilentOn(...texts) {
    for (const text of texts)
      assert.ok(!this.report.includes(text), `«${text}» in:\n${this.report}`);
  }
}

async function checked(page, options) {
  const check = new Check();
  await check.run(page, options);
  assert.ok(check.tookMs < latestEndMs, `${check.tookMs} ms`);
  assert.ok(check.report.length < 16000);
  check.leavesNothing();
  return check;
}

/** Processes of a check whose environment has this variable. */
function alive(variable = tag) {
  return readdirSync('/proc').filter(process => {
    try {
      return /^\d+$/.test(process) && readFileSync(`/proc/${process}/environ`, 'utf8').split('\0').includes(variable);
    } catch {
      return false;
    }
  }).length;
}

async function until(condition) {
  for (const end = Date.now() + 60000; !condition() && Date.now() < end;)
    await new Promise(resolve => setTimeout(resolve, 20));
  assert.ok(condition(), String(condition));
}

const verdicts = [
  ['clean.html', 0, ['Страница clean.html открывается без ошибок (компьютер 1280×800, телефон 390×844).'],
    ['Замечания']],
  ['canvas.html', 0, [], ['Замечания']],
  ['unusual.html', 0, ['- Не загружается https://fonts.example/inter.css: адрес в интернете', 'api/tasks',
    '- console.error: Проверка связи не удалась'], ['шире экрана', 'обработано позже', 'late.json', 'Браузер сообщает', 'скрыт']],
  ['modules/index.html', 0, ['только через веб-сервер. При открытии файла двойным щелчком: Не загружается app.js']],
  ['built/index.html', 0, ['только через веб-сервер']],
  ['scripts.html', 1, [
    'Проверка страницы scripts.html в браузере нашла ошибки:\n\n1. ',
    "Ошибка JavaScript: TypeError: Cannot read properties of undefined (reading 'length')\n   scripts.html:10:",
    ' | return order.items.length;', 'Ошибка JavaScript: SyntaxError', '   broken.js:1:',
    'Необработанный отказ Promise: Error: нет связи',
    'выведена через console.error: ReferenceError: undefinedName is not defined',
    'Content-Security-Policy страницы не даёт выполнить её код: script-src'], ['скрыт']],
  ['requests/index.html', 1, [
    'Не загружается img/logo.png: такого файла в проекте нет.\n   index.html:6:', 'Не загружается no.js',
    'Не загружается data.json', 'Не загружается outside.js', '- Не загружается api/tasks'], ['Прочитан файл вне папки']],
  ['in-use.html', 0, ['открывается без ошибок'], ['Замечания']],
  ['broken-in-use.html', 1, ['ReferenceError: total is not defined\n   broken-in-use.html:', 'что сделано: нажать «Итог»'],
    ['Замечания', 'Не проверено']],
  ['hangs-in-use.html', 1, ['Скрипт занимает страницу без конца', 'hangs-in-use.html:', 'что сделано: нажать «Решить»']],
  ['dead-in-use.html', 0, ['Замечания:\n- кнопка «Сброс» ничего не изменила\n- кнопка «Пустая» ничего не изменила\n'],
    ['Добавить', 'Нельзя']],
  ['blank.html', 1, ['Страница пуста']],
  ['empty-app.html', 1, ['Страница пуста']],
  ['wide-on-phone.html', 1, [
    'Страница шире экрана: 768 вместо 390 пикселей, появляется прокрутка вбок. [телефон 390×844]',
    '<div#board.grid>: правый край на 768'], ['scrolled']],
  ['dialogs.html', 0, ['открывается без ошибок', '- Окно alert() при загрузке, закрыто без ответа: «Добро пожаловать».',
    '- Окно prompt()', '- Окно confirm()']],
  ['asks.html', 0, ['проверена не полностью, ошибок не найдено', 'Не проверено:\n- страница ждёт ответа в окнах prompt()']],
  ['outer.html', 0, ['проверена не полностью, ошибок не найдено',
    '\n\nНе проверено:\n- скрипт https://cdn.example/charts.js: адрес в интернете, сеть при проверке закрыта\n',
    '- ReferenceError: style is not defined (outer.html:9:1 | style.config = { dark: true };)\n',
    '- ReferenceError: Chart ', '- ReferenceError: Cannot access \'chart\' before initialization', '- TypeError: window.confetti is not a function (outer.html:17',
    '- TypeError: Cannot read properties of undefined (reading \'map\') (outer.html:18', '- ReferenceError: $ ',
    '- ReferenceError: moment ', '- TypeError: Failed to fetch dynamically imported module: https://cdn.example/late.js',
    '- скрипт https://cdn.example/late.js']],
  ['outer-faults.html', 1, ['нашла ошибки:\n\n1. ', 'ReferenceError: start is not defined\n   ', '(reading \'length\')\n',
    '(reading \'items\')\n', 'Не проверено:\n- скрипт https://cdn.example/charts.js', '- ReferenceError: Chart is not defined']],
  ['outer-app.html', 0, ['Не проверено:\n- скрипт https://cdn.example/view.js', '- без скриптов из интернета на экране']],
  ['hides.html', 1, ['Ошибка JavaScript, скрытая страницей: TypeError: Cannot read properties of null (reading \'focus\')\n'
    + '   hides.html:15:', 'Необработанный отказ Promise, скрытый страницей: Error: скрыто\n   hides.html:13:',
    'скрытая страницей: SyntaxError'], ['обработано', 'следит']],
  ['project/pages/index.html', 0, ['Страница pages/index.html открывается', 'только через веб-сервер'], [], 'project'],
  ['project/pages/index.html', 1, ['Не загружается common.css: такого файла в проекте нет.']],
  ['project/pages/plain.html', 1, ['Не загружается clean.css: такого файла в проекте нет.'], ['common.css'], 'project'],
  ['project/site/index.html', 0, ['только через веб-сервер'], [], 'project'],
  ['project/site/broken.html', 1, ['Ошибка JavaScript: Error: сломано\n   broken.js:1:', 'Не загружается none.png'],
    ['Не загружается broken.js'], 'project'],
  ['endless.html', 1, ['Скрипт занимает страницу без конца', 'endless.html:8:', ' | for (;;);',
    'endless.html:10:1 | findExit();']],
  ['reloads.html', 1, ['без конца перезагружается']],
  ['leaves.html', 1, ['Страница при загрузке открывает окно https://shop.example/',
    'Страница сама переходит на https://shop.example/', 'Страница шире экрана: 908']],
  ['closes.html', 0, []],
  ['flood.html', 1, ['Error: 0xxx', 'Есть и другие ошибки, не показано: ']],
];

// Each waits for half of its time.
describe('a page gets its verdict', { concurrency: 3, skip }, () => {
  for (const [page, code, said, unsaid = [], project = ''] of verdicts) {
    test(`${page} ${project}`, async () => {
      const check = await checked(join(pages, page), { project: project && join(pages, project) });
      assert.equal(check.code, code, check.report);
      check.says(...said);
      check.keepsSilentOn(...unsaid, ...code ? ['только через веб-сервер'] : []);
    });
  }

  test('any folder will do', async () => {
    const page = savePage('Мой сайт №1 (100%)/глав #1?.html', "<script src='скрипт и всё.js'></script>");
    save('Мой сайт №1 (100%)/скрипт и всё.js', "document.title = 'готово'");
    const long = join(folder, 'long'.repeat(20)); // Sockets have short paths.
    mkdirSync(long);
    const check = await checked(page, { environment: { TMPDIR: long } });
    assert.equal(check.report, 'Страница глав #1?.html открывается без ошибок (компьютер 1280×800, телефон 390×844).\n');
    assert.deepEqual(readdirSync(long), []);
  });

  test('no other computer is asked', async context => {
    const outer = Object.values(networkInterfaces()).flat().find(({ family, internal }) => family === 'IPv4' && !internal);
    if (!outer)
      return context.skip('this computer has no address but loopback');
    let asked = 0;
    const other = createServer(() => ++asked).listen(0, outer.address);
    await new Promise(resolve => other.on('listening', resolve));
    const host = `${outer.address}:${other.address().port}`;
    const check = await checked(savePage('outwards.html', `
      <link rel="preconnect" href="http://${host}"><link rel="prefetch" href="http://${host}/next.html">
      <img src="http://${host}/picture.png" alt=""><iframe src="http://${host}/frame.html"></iframe>
      <script>
      const quiet = () => {};
      fetch('http://${host}/data').catch(quiet);
      navigator.sendBeacon('http://${host}/beacon', 'x');
      new WebSocket('ws://${host}/').onerror = quiet;
      new RTCPeerConnection({iceServers: [{urls: 'turn:${host}?transport=tcp', username: 'a', credential: 'b'}]})
          .createDataChannel('x');
      new Worker(URL.createObjectURL(new Blob(["fetch('http://${host}/worker').catch(() => {})"])));
      </script>`));
    other.close();
    assert.equal(asked, 0);
    check.says('/picture.png: адрес в интернете, сеть при проверке закрыта');
    assert.equal(check.code, 0, check.report);
  });

  test('no file outside of the folder is read', async () => {
    const secret = save('secret.js', "for (;;) alert('Секрет прочитан');");
    const page = savePage('linked/index.html', `<script src='link.js'></script><script src='file:///${secret}'></script>`);
    symlinkSync(secret, join(folder, 'linked/link.js'));
    const check = await checked(page);
    assert.equal(check.code, 1);
    check.says('Не загружается link.js', 'Not allowed to load local resource');
    check.keepsSilentOn('Секрет прочитан');
  });

  test('what never comes is named', async () => {
    let asked = 0;
    const silent = createServer(() => ++asked).listen(0, '127.0.0.1');
    await new Promise(resolve => silent.on('listening', resolve));
    const check = await checked(savePage('never.html',
                                         `<img src='http://127.0.0.1:${silent.address().port}/never.png' alt=''>`));
    silent.close();
    assert.ok(asked); // Loopback is open.
    assert.equal(check.code, 1);
    check.says('Страница не загрузилась за 8 с.', '/never.png');
  });

  test('messages without end are a finding', async () => {
    const check = await checked(savePage('messages.html', "<script>for (;;) alert('Ещё')</script>"));
    assert.equal(check.code, 1);
    check.says('Страница открывает окна alert() одно за другим.');
  });

  test('a page without a viewport is told so', async () => {
    const check = await checked(save('old.html', '<!doctype html><meta charset=utf-8><h1>Страница</h1>'));
    assert.equal(check.code, 0, check.report);
    check.says('Замечания:\n- Нет <meta name="viewport"');
  });

  test('a text without end is not taken in', async () => {
    const check = await checked(savePage('long.html', "<script>console.error('x'.repeat(17e6))</script>"));
    assert.equal(check.code, 1);
    check.says('текст больше 16 МБ');
  });

  test('mail is not opened', async () => {
    // A browser starts this command for an address that is not its own.
    chmodSync(save('bin/xdg-open', `#!/bin/sh\ntouch '${folder}/started'\n`), 0o755);
    const page = savePage('mail.html', "<script>setTimeout(() => { location = 'mailto:a@b.example'; }, 300)</script>");
    const check = await checked(page, { environment: { PATH: join(folder, 'bin') + delimiter + process.env.PATH } });
    assert.equal(check.code, 0, check.report);
    assert.ok(!existsSync(join(folder, 'started')));
  });

  test('a page that is missing is a finding', async () => {
    const check = await checked(join(pages, 'missing.html'));
    assert.equal(check.code, 1);
    check.says('Файла страницы нет');
  });

  for (const program of ['/no/such/browser', '/bin/false', undefined]) {
    test(`nothing is said about the page without a browser: ${program}`, async () => {
      const check = await checked(program && join(pages, 'clean.html'), { program });
      assert.equal(check.code, 2);
      assert.match(check.report, /^Страница \S+ не проверена в браузере: /);
    });
  }
});

describe('nothing is left behind', { skip }, () => {
  async function lookedAt(check, page) {
    const own = `VESK_TEST_RUN=${check.home}`;
    const ended = check.run(page, { environment: { VESK_TEST_RUN: check.home } });
    await until(() => alive(own) >= 6); // A browser with a page in it.
    return { ended, own };
  }

  test('by an interrupted check', async () => {
    const check = new Check();
    const { ended, own } = await lookedAt(check, join(pages, 'endless.html'));
    assert.notDeepEqual(check.left(), []);
    check.process.kill('SIGTERM');
    assert.equal((await ended).code, 128 + 15);
    check.leavesNothing();
    await until(() => !alive(own));
  });

  test('by a killed check no process, and the next one removes its folder', async () => {
    const check = new Check();
    const { ended, own } = await lookedAt(check, join(pages, 'endless.html'));
    check.process.kill('SIGKILL');
    await ended;
    await until(() => !alive(own));
    const profiles = check.left();
    assert.equal(profiles.length, 1);
    mkdirSync(join(check.temporary, 'vesk-browser-check-young'));
    utimesSync(join(check.temporary, profiles[0]), 1e9, 1e9);
    await check.run(join(pages, 'clean.html'));
    assert.equal(check.code, 0, check.report);
    assert.deepEqual(check.left(), ['vesk-browser-check-young']);
    rmSync(check.temporary, { recursive: true });
  });

  test('by all the checks before', () => until(() => !alive()));
});

const { Findings, oneLine } = await import(join(tools, 'findings.mjs'));

test('a report has a limit in every direction', () => {
  assert.equal(oneLine('a\n\u0007 b\t'), 'a b');
  assert.equal(oneLine('x'.repeat(401)), `${'x'.repeat(400)}…`);
  const screens = [{ title: 'A' }, { title: 'B' }];
  const findings = new Findings();
  findings.add(screens[0], 'one', ['1', '2', '3', '4', '5', '6', '7']);
  for (const screen of screens)
    findings.add(screen, 'both');
  findings.retract(findings.add(screens[0], 'taken back'));
  findings.note('same');
  findings.note('same');
  assert.equal(findings.report('p', screens), 'Проверка страницы p в браузере нашла ошибки:\n\n1. one [A]\n   1\n   2\n'
    + '   3\n   4\n   5\n   6\n\n2. both\n\nЗамечания:\n- same\n');
  for (let number = 0; number < 30; ++number) {
    findings.add(screens[0], `${number}`);
    findings.note(`${number}`);
  }
  const report = findings.report('p', screens);
  assert.ok(report.includes('Есть и другие ошибки, не показано: 12.'), report);
  assert.equal(report.match(/^- /gm).length, 10);
  const long = new Findings();
  for (let number = 0; number < 20; ++number)
    long.add(null, `${number}`, Array(6).fill('x'.repeat(300)));
  assert.ok(long.report('p', screens).length < 11000);
});

const { defines, unknownName } = await import(join(tools, 'unknown.mjs'));

test('what is not known is told by the error, or by what stands before its place', () => {
  for (const [name, message, before = ''] of [
    ['Chart', 'ReferenceError: Chart is not defined'],
    ['$', 'ReferenceError: $ is not defined'],
    ['моё', "ReferenceError: Cannot access 'моё' before initialization"],
    ['L', 'TypeError: window.L is not a constructor'],
    ['L', "TypeError: Cannot read properties of undefined (reading 'map')", '  const m = globalThis.L.'],
    [undefined, "TypeError: Cannot read properties of undefined (reading 'map')", 'window.game.L.'],
    [undefined, "TypeError: Cannot read properties of null (reading 'map')", 'window.L.'],
    [undefined, 'TypeError: window.L.map is not a function'],
    [undefined, 'Error: Chart is not defined'],
  ])
    assert.equal(unknownName(message, before), name, message);
});

test('a script makes a name known', () => {
  for (const source of ['const $x = 1', 'function* $x() {}', 'class $x{', "import $x from './x.js'", 'import { y as $x }',
    'let y = 2, $x = 1', '$x=1', ';window.$x = 1'])
    assert.ok(defines(source, '$x'), source);
  for (const source of ['$x === 1', '$x == 1', '$x => 1', 'y.$x = 1', 'const $xy = 1', 'let y$x = 1', 'new $x()', 'letter $x'])
    assert.ok(!defines(source, '$x'), source);
});

const { isOneColour } = await import(join(tools, 'picture.mjs'));

/** A picture of rows, each a filter and its bytes. */
function png(channels, ...rows) {
  const chunk = (name, data) => {
    const head = Buffer.alloc(8);
    head.writeUInt32BE(data.length);
    head.write(name, 4);
    return Buffer.concat([head, data, Buffer.alloc(4)]);
  };
  const header = Buffer.alloc(13);
  header.writeUInt32BE((rows[0].length - 1) / channels);
  header.writeUInt32BE(rows.length, 4);
  header[9] = channels === 4 ? 6 : 2;
  const data = deflateSync(Buffer.from(rows.flat()));
  return Buffer.concat([Buffer.alloc(8), chunk('IHDR', header), chunk('IDAT', data.subarray(0, 5)),
    chunk('IDAT', data.subarray(5))]);
}

for (const [name, one, picture] of [
  ['plain', true, png(3, [0, 7, 8, 9, 7, 8, 9])],
  ['one pixel differs', false, png(3, [0, 7, 8, 9, 7, 8, 8])],
  ['one row differs', false, png(3, [0, 7, 8, 9], [0, 7, 8, 8])],
  ['transparent', true, png(4, [0, 1, 2, 3, 0, 1, 2, 3, 0])],
  ['left', true, png(3, [1, 7, 8, 9, 0, 0, 0])],
  ['up', true, png(3, [0, 7, 8, 9], [2, 0, 0, 0])],
  ['up, and another colour', false, png(3, [0, 7, 8, 9], [2, 0, 1, 0])],
  ['mean', true, png(3, [0, 8, 8, 8], [3, 4, 4, 4])],
  ['nearest: up, then left or corner', true, png(3, [0, 7, 8, 9, 7, 8, 9], [4, 0, 0, 0, 0, 0, 0])],
  ['nearest is the corner', false, png(3, [0, 5, 5, 5, 9, 9, 9], [4, 5, 5, 5, 0, 0, 0])],
]) {
  test(`one colour: ${name}`, () => assert.equal(isOneColour(picture), one));
}
