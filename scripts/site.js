'use strict';
// npm run site: builds the site of documents, reference and examples into out/site.
const fs = require('fs');
const path = require('path');
const { installModules, setup } = require('./setup');
const { fail, newerNode, removeFolder, root, status } = require('./lib/run');
const { findBrokenLinks } = require('./lib/site-links');
const { writeLive } = require('./lib/site-live');
const { folders, gatherPages, writeApiIndex, writeMenu } = require('./lib/site-pages');

const tool = (file) => path.join('site', 'node_modules', file);

/** Writes the pages of the reference, made of the typings. */
function writeReference(node) {
  const { entryPoints } = JSON.parse(
    fs.readFileSync(path.join(root, 'types', 'typedoc.json'), 'utf8')
  );
  const entries = entryPoints.map((file) => ['--entryPoints', path.join('types', file)]);
  return (
    status(node, [
      tool('typedoc/bin/typedoc'),
      ...['--options', path.join('site', 'typedoc.json'), '--logLevel', 'Warn'],
      ...['--tsconfig', path.join('types', 'tsconfig.json')],
      ...[].concat(...entries),
      ...['--out', path.join(folders.pages, 'api')],
    ]) === 0
  );
}

/**
 * Builds the site. What is wrong is printed.
 * @returns {boolean} whether it was built, and all its links lead somewhere
 */
function buildSite() {
  const node = newerNode();
  if (node === null) {
    console.error('nq_logic: the site is built by a newer Node than 12: put one on PATH.');
    return false;
  }
  installModules('site');
  removeFolder(folders.site);
  gatherPages();
  if (!writeReference(node)) {
    return false;
  }
  writeApiIndex();
  writeMenu();
  if (status(node, [tool('vitepress/bin/vitepress.js'), 'build', 'site']) !== 0) {
    return false;
  }
  writeLive(path.join(folders.site, 'live'));
  const broken = findBrokenLinks(folders.site);
  broken.forEach((message) => console.error(message));
  return broken.length === 0;
}

if (require.main === module) {
  try {
    setup('build', 'wasm');
    if (!buildSite()) {
      fail('the site is not built: see above.');
    }
  } catch (error) {
    fail(error.message);
  }
  console.log(`${path.relative(root, folders.site)}/: put this folder anywhere on a server`);
}

module.exports = { buildSite };
