// The page's project, as the browser gets to see it: as files, the way a person opens the page, or from a server.
import { createReadStream, readFileSync, realpathSync, statSync } from 'node:fs';
import { createServer } from 'node:http';
import { basename, dirname, extname, join, relative, sep } from 'node:path';
import { fileURLToPath, pathToFileURL } from 'node:url';

const loopbackHosts = ['localhost', '127.0.0.1', '[::1]'];

// Without its type the browser refuses a module, a style sheet or a picture of lines. No charset: the page has to name
// it itself, since nobody else does when it is opened as a file.
const types = {
  '.css': 'text/css', '.gif': 'image/gif', '.htm': 'text/html', '.html': 'text/html', '.ico': 'image/x-icon',
  '.jpeg': 'image/jpeg', '.jpg': 'image/jpeg', '.js': 'text/javascript', '.json': 'application/json',
  '.mjs': 'text/javascript', '.mp3': 'audio/mpeg', '.mp4': 'video/mp4', '.ogg': 'audio/ogg', '.pdf': 'application/pdf',
  '.png': 'image/png', '.svg': 'image/svg+xml', '.txt': 'text/plain', '.wasm': 'application/wasm',
  '.wav': 'audio/wav', '.webm': 'video/webm', '.webmanifest': 'application/manifest+json', '.webp': 'image/webp',
  '.woff': 'font/woff', '.woff2': 'font/woff2', '.xml': 'text/xml',
};

const largestSource = 8 * 1024 * 1024;
const sourceAround = 60;

/** The folder of a project with one of its pages. Nothing outside of it is shown to the page. */
class Folder {
  constructor(page, root) {
    this.root = realpathSync(root);
    this.page = join(realpathSync(dirname(page)), basename(page));
  }

  /** True for a file of this folder. A link counts as what it leads to. */
  holds(path) {
    try {
      const real = realpathSync(path);
      return real.startsWith(this.root.replace(/\/$/, '') + sep) && statSync(real).isFile();
    } catch {
      return false;
    }
  }
}

/** True when a page can be opened: a file that really lies in its project. */
export function isPage(page, root) {
  try {
    return new Folder(page, root).holds(page);
  } catch {
    return false;
  }
}

/** What the two ways of opening a page have in common. `url` is the page's address, `base` that of the project. */
class Site {
  #sources = new Map();

  constructor(folder) {
    this.folder = folder;
  }

  /** Why the browser must not load this address: a text; or empty. */
  refusal(address) {
    const url = parsed(address);
    if (url?.protocol === 'file:')
      return this.refusalOfFile(url);
    if (['data:', 'blob:', 'about:'].includes(url?.protocol))
      return '';
    return isLoopback(url) ? '' : 'адрес в интернете, сеть при проверке закрыта';
  }

  /** True where a failure is the project's own: a file, or a program on this computer. */
  isLocal(address) {
    const url = parsed(address);
    return url?.protocol === 'file:' || isLoopback(url);
  }

  /** The address as the project's author knows it: a path in the project where it lies there. */
  nameOf(address) {
    const url = parsed(address);
    if (url?.protocol === 'blob:')
      return 'blob'; // The rest is different each time.
    const path = this.pathOf(url);
    return path.startsWith(this.folder.root + sep) ? path.slice(this.folder.root.length + 1) : address.slice(0, 200);
  }

  /** A text of the browser without the part of the addresses in it that says nothing to the project's author. */
  shortened(text) {
    return text.replaceAll(this.base, '');
  }

  /** What stands in this line of a file of the page, cut round the column; both count from 0. Models find a place by
   *  its text more surely than by its number. Empty when it cannot be told. */
  sourceOf(address, line, column) {
    const text = this.#linesOf(address)[line] ?? '';
    return text.slice(Math.max(0, column - sourceAround), column + sourceAround).trim();
  }

  /** What stands before this place in its line. */
  before(address, line, column) {
    return (this.#linesOf(address)[line] ?? '').slice(0, column);
  }

  /** Where a file of the page mentions this name first, counted from 0; or nothing. */
  placeOf(address, name) {
    const lines = this.#linesOf(address);
    const lineNumber = lines.findIndex(line => name && line.includes(name));
    return lineNumber < 0 ? {} : { lineNumber, columnNumber: lines[lineNumber].indexOf(name) };
  }

  // Read once: one line can fail a thousand times.
  #linesOf(address) {
    if (!this.#sources.has(address)) {
      const path = this.pathOf(parsed(address));
      const readable = this.folder.holds(path) && statSync(path).size <= largestSource;
      this.#sources.set(address, readable ? readFileSync(path, 'utf8').split('\n') : []);
    }
    return this.#sources.get(address);
  }

  close() {}
}

/** The page as it is when a person opens the file. Chromium then takes each file for a place of its own, and refuses
 *  modules, fetch() and whatever else needs a common origin. */
export class FileSite extends Site {
  constructor(page, root) {
    super(new Folder(page, root));
    this.base = pathToFileURL(join(this.folder.root, sep)).href;
    this.url = pathToFileURL(this.folder.page).href;
  }

  refusalOfFile(url) {
    const path = this.pathOf(url);
    if (this.folder.holds(path))
      return '';
    return path.startsWith(this.folder.root + sep) ? 'такого файла в проекте нет' : 'файл вне проекта';
  }

  pathOf(url) {
    try {
      return url?.protocol === 'file:' ? fileURLToPath(url) : '';
    } catch {
      return ''; // The name of a computer, or a slash in disguise.
    }
  }
}

/** The page as a web server shows it, for what a bundler has built or what consists of modules. */
export class ServedSite extends Site {
  #server;

  /** Resolves with a site whose server listens on this computer alone. */
  static async start(page, root) {
    const site = new ServedSite(new Folder(page, root));
    await site.#listen();
    return site;
  }

  async #listen() {
    this.#server = createServer((request, response) => this.#answer(request, response));
    await new Promise((resolve, reject) => this.#server.on('error', reject).listen(0, '127.0.0.1', resolve));
    this.origin = `http://127.0.0.1:${this.#server.address().port}`;
    this.base = `${this.origin}/`;
    const path = relative(this.folder.root, this.folder.page).split(sep).map(encodeURIComponent).join('/');
    // As visitors come: what routes by the address finds no page of that name.
    this.url = this.base + path.replace(/(?<=^|\/)index\.html$/, '');
  }

  refusalOfFile() {
    return 'файл вне проекта';
  }

  pathOf(url) {
    if (url?.origin !== this.origin || url.protocol !== 'http:')
      return '';
    try {
      const path = join(this.folder.root, decodeURIComponent(url.pathname));
      return path.endsWith(sep) ? `${path}index.html` : path;
    } catch {
      return '';
    }
  }

  #answer(request, response) {
    const path = this.pathOf(new URL(request.url, this.origin));
    const file = [path, join(path, 'index.html')].find(candidate => path && this.folder.holds(candidate));
    if (!file)
      return response.writeHead(request.url === '/favicon.ico' ? 204 : 404).end(); // Asked for without being named.
    response.writeHead(200, { 'Content-Type': types[extname(file).toLowerCase()] ?? 'application/octet-stream' });
    createReadStream(file).on('error', () => response.destroy()).pipe(response);
  }

  close() {
    this.#server.close();
    this.#server.closeAllConnections();
  }
}

function parsed(address) {
  try {
    return new URL(address);
  } catch {
    return null;
  }
}

function isLoopback(url) {
  return ['http:', 'https:', 'ws:', 'wss:'].includes(url?.protocol) && loopbackHosts.includes(url.hostname);
}
