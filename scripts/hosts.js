'use strict';
// npm run hosts: downloads the hosts other than Node 12, all or the named ones (`npm run hosts -- 22 24`).
const { fail } = require('./lib/run');
const { fetched, fetchHost, hostFolder } = require('./lib/hosts');

const given = process.argv.slice(2);
const unknown = given.find((name) => !fetched.includes(name));
if (unknown !== undefined) {
  fail(`there is no host '${unknown}' to download; there are: ${fetched.join(', ')}.`, 2);
}
try {
  for (const name of given.length > 0 ? given : fetched) {
    fetchHost(name);
    console.log(hostFolder(name));
  }
} catch (error) {
  fail(error.message);
}
