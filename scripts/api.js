'use strict';
// npm run api: writes the API reference, made of the typings, into out/api.
const path = require('path');
const { setup } = require('./setup');
const { host } = require('./lib/build');
const { root, status } = require('./lib/run');
const { nodeModule } = require('./lib/sources');

/**
 * Writes the API reference. What there is to say against the typings' comments, links to nothing for one, is an error.
 * @param {string} folder emptied first
 * @returns {boolean} whether there was nothing
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
