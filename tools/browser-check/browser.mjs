// A headless browser of our own: started with a fresh profile, spoken to over a pipe, ended without a trace.
import { spawn } from 'node:child_process';
import { lstatSync, mkdirSync, mkdtempSync, readdirSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { delimiter, join } from 'node:path';
import { Connection } from './connection.mjs';
import { pause, within } from './time.mjs';

const startLimitMs = 12000;

// How long the killed processes get to vanish before their profile is removed.
const vanishLimitMs = 1000;

const profilePrefix = 'vesk-browser-check-';

// The browser makes a socket in its profile, and the path of a socket has at most 107 bytes, of which the names of the
// profile and of what lies in it take these.
const socketBytes = 71;
const profileParent = Buffer.byteLength(tmpdir()) + socketBytes <= 107 ? tmpdir() : '/tmp';

// No run lasts that long: a profile of this age belongs to one that was killed.
const abandonedAfterMs = 120000;

const flags = [
  '--headless=new', '--remote-debugging-pipe', '--no-startup-window', '--no-first-run', '--no-default-browser-check',
  '--disable-gpu', '--mute-audio', '--disable-audio-output', '--hide-scrollbars', '--disable-dev-shm-usage', '--force-color-profile=srgb',
  // Nothing that the browser does for its own sake: updates, reports, synchronisation, the user's keyring.
  '--disable-background-networking', '--disable-component-update', '--disable-sync', '--disable-domain-reliability',
  '--disable-client-side-phishing-detection', '--disable-default-apps', '--disable-extensions', '--disable-breakpad',
  '--no-pings', '--disable-search-engine-choice-screen', '--password-store=basic', '--use-mock-keychain',
  // The first two are pages that each window loads for its address line: half of the processor time of a check.
  '--disable-features=WebUIOmniboxPopup,WebUIOmniboxAimPopup,Translate,MediaRouter,DialMediaRouteProvider,'
    + 'OptimizationHints,LocalNetworkAccessChecks',
  // Drawing in three dimensions works without a graphics card, too: many games need it.
  '--enable-unsafe-swiftshader',
  // The requests of pages are judged one by one (view.mjs). These close what is not a request: name look-ups,
  // preconnections, web sockets, peer connections.
  '--host-resolver-rules=MAP * ~NOTFOUND, EXCLUDE localhost, EXCLUDE 127.0.0.1, EXCLUDE [::1]', '--no-proxy-server',
  '--force-webrtc-ip-handling-policy=disable_non_proxied_udp', '--webrtc-ip-handling-policy=disable_non_proxied_udp',
];

/** Thrown when there is no browser to check with: nothing is said about the page. */
export class NoBrowser extends Error {}

export class Browser {
  #process;
  #profile;
  #errorText = '';

  /** Starts the program; resolves once it answers. Throws NoBrowser. */
  static async start(program) {
    const browser = new Browser(program);
    try {
      await within(browser.connection.send('Browser.getVersion'), startLimitMs, 'браузер не отвечает');
    } catch (error) {
      await browser.end();
      throw new NoBrowser(error.message);
    }
    return browser;
  }

  constructor(program) {
    removeAbandonedProfiles();
    this.#profile = mkdtempSync(join(profileParent, profilePrefix));
    // Whatever way this process ends, short of a kill.
    process.on('exit', () => this.#erase());
    this.#process = spawn(program, [...flags, ...sandboxFlags(), `--user-data-dir=${this.#profile}`], {
      stdio: ['ignore', 'ignore', 'pipe', 'pipe', 'pipe'],
      detached: true, // A process group of its own, so that all of it can be killed.
      env: this.#environment(),
    });
    this.#process.stderr.on('data', data => { this.#errorText = (this.#errorText + data).slice(-4000); });
    this.connection = new Connection(this.#process.stdio[3], this.#process.stdio[4]);
    this.#process.on('error', error => this.connection.fail(new NoBrowser(error.message)));
    this.#process.on('close', (code, signal) => this.connection.fail(new NoBrowser(this.#obituary(code, signal))));
  }

  // What it leaves when it is killed shall lie in the profile: folders for sockets, and what is to become of crashes.
  // For an address of a mail the browser starts the user's mail program, by the name of a command.
  #environment() {
    const commands = join(this.#profile, 'commands');
    mkdirSync(commands);
    writeFileSync(join(commands, 'xdg-open'), '#!/bin/sh\n', { mode: 0o755 });
    const path = `${commands}${delimiter}${process.env.PATH ?? ''}`;
    return { ...process.env, PATH: path, TMPDIR: this.#profile, BREAKPAD_DUMP_LOCATION: this.#profile };
  }

  /** Kills the browser with all its processes and removes its profile. */
  async end() {
    this.connection.fail(new Error('браузер закрыт'));
    this.#kill();
    const limit = Date.now() + vanishLimitMs;
    while (this.#alive() && Date.now() < limit)
      await pause(10);
    this.#erase();
    this.#process = undefined; // Its number may become that of another.
  }

  #erase() {
    this.#kill();
    // A process that is dying can still make a file in a folder that is being removed.
    rmSync(this.#profile, { recursive: true, force: true, maxRetries: 10, retryDelay: 20 });
  }

  #kill() {
    this.#signal('SIGKILL');
  }

  #alive() {
    return this.#signal(0);
  }

  // To the whole group. False when nothing of it is left.
  #signal(signal) {
    try {
      return this.#process?.pid !== undefined && process.kill(-this.#process.pid, signal);
    } catch {
      return false;
    }
  }

  #obituary(code, signal) {
    const lines = this.#errorText.trim().split('\n').slice(-3).join(' | ');
    return `браузер завершился (${signal ?? `код ${code}`})${lines && `: ${lines}`}`;
  }
}

// Root cannot have the sandbox; nobody else goes without it.
function sandboxFlags() {
  return process.getuid?.() === 0 ? ['--no-sandbox'] : [];
}

// A run that was killed could not remove its profile.
function removeAbandonedProfiles() {
  for (const name of readdirSync(profileParent)) {
    if (name.startsWith(profilePrefix))
      removeIfAbandoned(join(profileParent, name));
  }
}

function removeIfAbandoned(folder) {
  try {
    const facts = lstatSync(folder);
    // The folder for temporary files is open to all: one of somebody else, or a link, is none of ours.
    const ours = facts.isDirectory() && (!process.getuid || facts.uid === process.getuid());
    if (ours && Date.now() - facts.mtimeMs > abandonedAfterMs)
      rmSync(folder, { recursive: true, force: true });
  } catch {
    // Another run was faster.
  }
}
