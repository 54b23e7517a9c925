'use strict';
// npm run api: generates the API reference from the typings, into out/api.
const path = require('path');
const { setup } = require('./setup');
const { host } = require('./lib/build');
const { root, status } = require('./lib/run');
const { nodeModule } = require('./lib/sources');

/**
 * Generates the API reference. Problems in the typings' comments, such as broken links, are errors.
 * @param {string} folder emptied first
 * @returns {boolean} whether there were no errors
 */
function writeApi(folder) {
  const options = path.join('types', 'typedoc.json');
  return (
    status(host, [nodeModule('typedoc/bin/typedoc'), '--options', options, '--out', folder]) === 0
  );
}

if (require.main === module) {
  setup('build');
  process.exitCode = writeApi(path.join(root, 'out', 'api')) ? 0 : 1;
}

module.exports = { writeApi };
