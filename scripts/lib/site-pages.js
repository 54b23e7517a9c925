'use strict';
// The pages of the site before it is built: README, the documents, the examples with what they print, and the
// reference, in one folder that has the repository's structure.
const fs = require('fs');
const path = require('path');
const { removeFolder, root } = require('./run');

const kSiteTitle = 'nq_logic';

/** Folders that `npm run site` writes: pages in Markdown, and the site that is made of them. */
const folders = {
  pages: path.join(root, 'out', 'site-pages'),
  site: path.join(root, 'out', 'site'),
};

const read = (file) => fs.readFileSync(path.join(root, file), 'utf8');

function write(page, text) {
  const file = path.join(folders.pages, page);
  fs.mkdirSync(path.dirname(file), { recursive: true });
  fs.writeFileSync(file, text);
}

/** Names of the files of a folder that match, in order. */
const filesOf = (folder, pattern) =>
  fs
    .readdirSync(path.join(root, folder))
    .filter((name) => pattern.test(name))
    .sort();

/**
 * The page that is made of a file.
 * @param {string} file path, from wherever
 * @returns {string} the same with the page's name
 */
function pageOf(file) {
  return file
    .replace(/(^|\/)README\.md$/, '$1index.md')
    .replace(/(^|\/)LICENSE$/, '$1LICENSE.md')
    .replace(/\.js$/, '.md');
}

/**
 * The file that a built page is made of.
 * @param {string} page path from the site's folder
 * @returns {string} path from the root, as far as there is one
 */
function sourceOf(page) {
  const file = page.replace(/\.html$/, '.md');
  if (file === 'index.md') {
    return 'README.md';
  }
  return file.startsWith('api/')
    ? 'types/'
    : file.replace(/^((examples|site\/live)\/.*)\.md$/, '$1.js');
}

/** Anchor of a heading, as code hosts make it. */
function slugOf(heading) {
  return heading
    .trim()
    .toLowerCase()
    .replace(/[^\p{L}\p{N}\- _]/gu, '')
    .replace(/ /g, '-');
}

/** The title of a page for a menu: its first heading, up to a colon. */
function shortTitle(page) {
  const [, heading] = /^# (.*)$/m.exec(fs.readFileSync(path.join(folders.pages, page), 'utf8'));
  return heading.replace(/:.*/, '').replace(/[`"\\]/g, '');
}

const linkTo = (page) => `/${page.replace(/(^|\/)index\.md$/, '$1').replace(/\.md$/, '')}`;
const itemOf = (page, text = shortTitle(page)) => ({ text, link: linkTo(page) });

/** A fenced block, whatever its text. */
function fenced(language, text) {
  const ticks = (text.match(/`{3,}/g) || []).map(({ length }) => length);
  const fence = '`'.repeat(Math.max(2, ...ticks) + 1);
  return `${fence}${language}\n${text.replace(/\n*$/, '\n')}${fence}\n`;
}

/** The page of an example: what its first comment says, its source, and what it prints. */
function examplePage(name) {
  const source = read(`examples/${name}.js`);
  const comment = /^'use strict';\n((?:\/\/.*\n)+)/.exec(source);
  if (comment === null) {
    throw new Error(
      `examples/${name}.js does not say what it is: begin with 'use strict' and a comment.`
    );
  }
  const lines = comment[1].split('\n').map((line) => line.replace(/^\/\/ ?/, ''));
  const lead = lines.slice(0, lines.indexOf('')).join(' ');
  const expected = `examples/expected/${name}.txt`;
  const parts = [
    `# ${name}\n`,
    `${lead}\n`,
    `To run it, see [examples](../docs/examples.md).\n`,
    '## Source\n',
    fenced('js', source),
  ];
  if (fs.existsSync(path.join(root, expected))) {
    parts.push('## Output\n', fenced('text', read(expected)));
  }
  return parts.join('\n');
}

/** Examples that run in their pages, in the order of the menu. */
const liveExamples = ['crowd', 'layers', 'culling', 'sockets'];

/** The page of a live example: what its first comment says, itself, and its source. */
function livePage(name) {
  const source = read(`site/live/${name}.js`);
  const [lead, ...more] = /^'use strict';\n((?:\/\/.*\n)+)/
    .exec(source)[1]
    .replace(/^\/\/ ?/gm, '')
    .trim()
    .split(/\n\n/)
    .map((text) => text.replace(/\n/g, ' '));
  const text = lead.replace(/^What it shows: /, '');
  return [
    `# Live example: ${name}\n`,
    `${text[0].toUpperCase()}${text.slice(1)} ${more.join(' ')}\n`,
    fenced('live', name),
    'It runs in this page, by the engine in [WebAssembly](../../docs/wasm.md).\n',
    '## Source\n',
    fenced('js', source),
  ].join('\n');
}

/** Gathers all pages but those of the reference. */
function gatherPages() {
  removeFolder(folders.pages);
  write('index.md', read('README.md'));
  write('CHANGELOG.md', read('CHANGELOG.md'));
  write('LICENSE.md', `# Licence\n\n${fenced('text', read('LICENSE'))}`);
  filesOf('docs', /\.(md|png|svg)$/).forEach((name) => {
    const page = `docs/${name}`;
    fs.mkdirSync(path.join(folders.pages, 'docs'), { recursive: true });
    fs.copyFileSync(path.join(root, page), path.join(folders.pages, page));
  });
  filesOf('examples', /\.js$/).forEach((file) => {
    const name = file.replace(/\.js$/, '');
    write(`examples/${name}.md`, examplePage(name));
  });
  liveExamples.forEach((name) => write(`site/live/${name}.md`, livePage(name)));
}

/** Pages below a folder of pages, in order. */
function pagesBelow(folder) {
  const at = path.join(folders.pages, folder);
  const entries = fs.readdirSync(at, { withFileTypes: true });
  const names = entries.map((entry) => `${folder}/${entry.name}${entry.isDirectory() ? '/' : ''}`);
  return []
    .concat(...names.map((name) => (name.endsWith('/') ? pagesBelow(name.slice(0, -1)) : [name])))
    .filter((name) => name.endsWith('.md'))
    .sort();
}

/** Modules of the reference: the page of each, and its members' pages by the name of their folder. */
function apiModules() {
  const pages = pagesBelow('api').filter((page) => page !== 'api/index.md');
  return pages
    .filter((page) => /\/index\.md$/.test(page) && !page.includes('/namespaces/'))
    .map((page) => {
      const folder = path.posix.dirname(page);
      const membersOf = (kind) =>
        pages.filter((one) => path.posix.dirname(one) === `${folder}/${kind}`);
      const spaces = pages.filter((one) => one.startsWith(`${folder}/namespaces/`));
      return {
        name: folder.slice('api/'.length),
        page,
        spaces,
        groups: { classes: [], functions: [], interfaces: [] },
        membersOf,
      };
    })
    .map((module) => {
      Object.keys(module.groups).forEach((kind) => {
        module.groups[kind] = module.membersOf(kind);
      });
      delete module.membersOf;
      return module;
    });
}

/** Where something that the typings export is described: a page, or a heading of one. */
function findMember(name, modules) {
  for (const { page, spaces, groups } of modules) {
    const own = [].concat(...Object.values(groups)).find((one) => one.endsWith(`/${name}.md`));
    const space = spaces.find((one) => one.endsWith(`/${name}/index.md`));
    const text = fs.readFileSync(path.join(folders.pages, page), 'utf8');
    const heading = text.split('\n').includes(`### ${name}`)
      ? `${page}#${slugOf(name)}`
      : undefined;
    const found = own || space || heading;
    if (found !== undefined) {
      return found.slice('api/'.length);
    }
  }
  throw new Error(
    `types/api.md names ${name}, which the typings do not export: name what is there.`
  );
}

/** Writes the first page of the reference, when the others are there. */
function writeApiIndex() {
  const modules = apiModules();
  const pieces = read('types/api.md').split(/(^```[^]*?^```$)/m);
  const linked = pieces.map((piece) =>
    piece.startsWith('```')
      ? piece
      : piece.replace(
          /\[\[([\w.]+)\]\]|\{@link ([\w.]+)\}/g,
          (all, a, b) => `[${a || b}](${findMember(a || b, modules)})`
        )
  );
  const list = modules.map(({ name, page }) => `- [${name}](${page.slice('api/'.length)})`);
  write('api/index.md', `${linked.join('')}\n## Modules\n\n${list.join('\n')}\n`);
}

/** Groups of documents: the tables of README's index, by their head rows. */
function documentGroups() {
  const [, section] = `${read('README.md')}\n## `.split(/^## Documents$/m);
  const lines = section.slice(0, section.indexOf('\n## ')).split('\n');
  const groups = [];
  lines.forEach((line, i) => {
    const [, cell] = line.split('|').map((one) => one.trim());
    const link = /^\[[^\]]*\]\(([^)#]+)\)$/.exec(cell || '');
    if (link !== null) {
      groups[groups.length - 1].pages.push(pageOf(link[1]));
    } else if (/^\|-/.test(lines[i + 1] || '')) {
      groups.push({ text: cell, pages: [] });
    }
  });
  return groups;
}

/** Writes what the site's configuration reads: its menu. */
function writeMenu() {
  const groups = documentGroups();
  const named = new Set([].concat(...groups.map(({ pages }) => pages)));
  const absent = pagesBelow('docs').filter((page) => !named.has(page));
  if (absent.length > 0) {
    throw new Error(`README.md has no ${absent.join(', ')} under "Documents": list it in a table.`);
  }
  const documents = groups.map(({ text, pages }) => ({
    text,
    items: pages.map((page) => itemOf(page)),
  }));
  documents[0].items.unshift(itemOf('index.md', 'Overview'));
  const titles = { classes: 'Classes', functions: 'Functions', interfaces: 'Interfaces' };
  const members = (page) => itemOf(page, path.posix.basename(page, '.md'));
  const modules = apiModules().map(({ name, page, spaces, groups: kinds }) => ({
    text: name,
    link: linkTo(page),
    items: [
      ...spaces.map((one) => itemOf(one)),
      ...Object.keys(kinds)
        .filter((kind) => kinds[kind].length > 0)
        .map((kind) => ({ text: titles[kind], collapsed: true, items: kinds[kind].map(members) })),
    ],
  }));
  const sidebar = [
    ...documents,
    {
      text: 'Live examples',
      items: liveExamples.map((name) => itemOf(`site/live/${name}.md`, `Live ${name}`)),
    },
    {
      text: 'Examples',
      collapsed: true,
      items: pagesBelow('examples').map((page) => itemOf(page)),
    },
    { text: 'API reference', collapsed: true, link: '/api/', items: modules },
  ];
  const { description } = JSON.parse(read('package.json'));
  write('site.json', JSON.stringify({ sidebar, description }));
}

module.exports = {
  folders,
  gatherPages,
  kSiteTitle,
  pageOf,
  slugOf,
  sourceOf,
  writeApiIndex,
  writeMenu,
};
