'use strict';
// node scripts/layouts.js: writes all files generated from the description of layouts, and the typings, which are
// generated from the JSDoc of lib/.
const fs = require('fs');
const path = require('path');
const { renderCommands } = require('./layouts/commands');
const description = require('./layouts/description');
const { renderDocument, renderFacts, renderScript, renderTypes } = require('./layouts/render');
const { renderTypings } = require('./layouts/typings');
const { renderViews } = require('./layouts/views');
const { fail, root } = require('./lib/run');
const { nodeModule } = require('./lib/sources');

/** A source formatted by prettier with the project's options. */
function inForm(text, parser) {
  const prettier = require(nodeModule('prettier'));
  const options = JSON.parse(fs.readFileSync(path.join(root, '.prettierrc.json'), 'utf8'));
  return prettier.format(text, Object.assign({ parser }, options));
}

/**
 * Typings generated from the JSDoc of lib/: path from the root, and content.
 * @returns {Array<{file: string, text: string}>}
 */
function generatedTypings() {
  return renderTypings().map(({ file, text }) => ({ file, text: inForm(text, 'typescript') }));
}

/**
 * Files generated from the description: path from the root, and content.
 * @returns {Array<{file: string, text: string}>}
 */
function generatedLayouts() {
  return [
    { file: 'lib/layout.js', text: inForm(renderScript(description), 'babel') },
    { file: 'types/layout.d.ts', text: inForm(renderTypes(description), 'typescript') },
    { file: 'docs/layouts.md', text: renderDocument(description) },
    { file: 'tests/native/Engine/LayoutFacts.inc', text: renderFacts(description) },
    ...[...renderViews(description), ...renderCommands(description)].map(({ file, text }) => ({
      file,
      text: inForm(text, 'babel'),
    })),
  ];
}

/**
 * Generated files that are out of date.
 * @returns {string[]} paths from the root
 */
function staleLayouts() {
  return [...generatedLayouts(), ...generatedTypings()]
    .filter(({ file, text }) => {
      const name = path.join(root, file);
      return !fs.existsSync(name) || fs.readFileSync(name, 'utf8') !== text;
    })
    .map(({ file }) => file);
}

function write({ file, text }) {
  fs.mkdirSync(path.dirname(path.join(root, file)), { recursive: true });
  fs.writeFileSync(path.join(root, file), text);
}

if (require.main === module) {
  if (process.argv.length > 2) {
    fail(`unknown argument ${process.argv[2]}; there are none: generated files are written.`, 2);
  }
  generatedLayouts().forEach(write);
  // After the sources of lib/ that the typings come from.
  generatedTypings().forEach(write);
}

module.exports = { staleLayouts };
