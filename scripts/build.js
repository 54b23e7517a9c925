'use strict';
// npm run build: builds the release module for Node 12 in build/Release/nq_logic.node, and the one for the Node that
// runs this, if it is a host, in build/Release/abiN. `--host NAME` names another host, or 12 for Node 12 only.
const { setup } = require('./setup');
const { build, targetOf } = require('./lib/build');
const { chooseHost, reference, takeHostOption } = require('./lib/hosts');
const { fail } = require('./lib/run');

const { rest, named } = takeHostOption(process.argv.slice(2));
if (rest.length > 0) {
  fail(`unknown option ${rest[0]}; known: --host NAME.`, 2);
}
setup('build');
const { name } = chooseHost(named);
const hosts = [...new Set([reference, name])];
const targets = hosts.map((one) => targetOf('nq_logic', one));
build('release', {}, targets, hosts);
