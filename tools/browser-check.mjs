// Checks in a real browser that a page loads without errors and shows well on a computer and on a phone.
//
//   node browser-check.mjs BROWSER PAGE [PROJECT [PICTURES]]
//
// Ends with 0 when all is well, 1 after a finding, 2 when the page could not be checked. The report is for the model
// that writes the page. docs/browser-check.md has the details.
import { mkdirSync, rmSync, writeFileSync } from 'node:fs';
import { dirname, relative, resolve } from 'node:path';
import { Browser, NoBrowser } from './browser-check/browser.mjs';
import { Findings } from './browser-check/findings.mjs';
import { FileSite, isPage, ServedSite } from './browser-check/site.mjs';
import { mostControls, Tried } from './browser-check/use.mjs';
import { View } from './browser-check/view.mjs';

const exitClean = 0;
const exitFindings = 1;
const exitUnchecked = 2;

// The application ends this program after 35 seconds, and then nothing that was found would reach anyone.
const limitMs = 27000;

const screens = [
  { title: 'компьютер 1280×800', width: 1280, height: 800, mobile: false },
  { title: 'телефон 390×844', width: 390, height: 844, mobile: true },
];

const [program, pageArgument, projectArgument, pictures] = process.argv.slice(2);
const page = resolve(pageArgument ?? '');
const project = resolve(projectArgument ?? dirname(page));
const mostDead = 6;

let browser;

// What has been found so far, for the case that time runs out. None before there is a browser.
let findings = null;

/** What is found at this site, on all screens or, with `briefly`, on the first ones up to a finding. */
async function look(site, briefly) {
  findings = new Findings();
  const tried = new Tried();
  for (const [index, screen] of screens.entries()) {
    if (findings.final || (briefly && !findings.empty))
      break;
    const view = new View(browser.connection, site, screen, findings);
    await view.run(tried, screens.length - index);
    keepPicture(screen, view.picture);
  }
  site.close();
  noteUse(tried);
  return findings;
}

/** How the page has looked on this screen, for whoever asks what the check has seen. Of its last look alone. */
function keepPicture({ width }, png) {
  if (!pictures)
    return;
  const path = `${pictures}-${width}.png`;
  try {
    rmSync(path, { force: true });
    mkdirSync(dirname(path), { recursive: true });
    if (png)
      writeFileSync(path, png);
  } catch {
    // The check is worth as much without it.
  }
}

/** What a button does that changes nothing, only its author knows. */
function noteUse(tried) {
  for (const name of tried.dead.slice(0, mostDead))
    findings.note(`кнопка «${name}» ничего не изменила`);
  if (tried.total > mostControls)
    findings.note(`Опробованы не все элементы страницы: ${tried.size} из ${tried.total}.`);
}

/** A person opens the page as a file, so that is tried first. Some pages are right and cannot work that way: what a
 *  bundler has built, and all that consists of modules. They are judged by how they work from a server, be it the
 *  page's own folder that is put there or the whole project: the one in which less is missing is meant. */
async function check() {
  const asFile = await look(new FileSite(page, project), true);
  if (asFile.empty || asFile.final)
    return;
  let best;
  for (const root of new Set([dirname(page), project])) {
    const served = await look(await ServedSite.start(page, root), false);
    if (!best || served.missing <= best.missing)
      best = served;
    if (served.final || !best.missing)
      break;
  }
  findings = best;
  if (best.empty)
    best.note(`Страница работает только через веб-сервер. При открытии файла двойным щелчком: ${asFile.first}`);
}

function reportMissing() {
  findings = new Findings();
  findings.add(null, `Файла страницы нет: ${page}`);
}

async function main() {
  if (!program || !pageArgument)
    throw new NoBrowser('нужны два аргумента: программа браузера и файл страницы');
  if (!isPage(page, project))
    return reportMissing();
  browser = await Browser.start(program);
  await check();
}

let finished = false;

function finish(code, text) {
  if (finished)
    return;
  finished = true;
  // What is printed is on its way at once, and the end of this process waits for the browser's folder to vanish.
  process.stdout.write(text, async () => {
    await browser?.end();
    process.exit(code);
  });
}

function finishWithFindings() {
  finish(findings.empty ? exitClean : exitFindings, findings.report(relative(project, page), screens));
}

function finishUnchecked(error) {
  finish(exitUnchecked, `Страница ${relative(project, page)} не проверена в браузере: ${error.message}\n`);
}

/** Time is up, or the browser is gone. What was found up to then is worth telling. */
function finishEarly(error) {
  if (!findings || findings.empty)
    return finishUnchecked(error);
  findings.note(`Проверка не закончена: ${error.message}.`);
  finishWithFindings();
}

setTimeout(() => finishEarly(new Error(`прошло ${limitMs / 1000} с`)), limitMs - performance.now());
process.on('uncaughtException', finishEarly);
for (const [signal, number] of [['SIGHUP', 1], ['SIGINT', 2], ['SIGTERM', 15]])
  process.on(signal, () => process.exit(128 + number));
main().then(finishWithFindings, finishEarly);
