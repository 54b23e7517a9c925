'use strict';
// Instead of Node.js's, for addresses.

/**
 * The address of the folder of a file, relative ones against the page's; null for one in no folder, as of a `blob:`
 * @returns {?string}
 */
function dirname(address) {
  const file = new URL(address, globalThis.location.href);
  return file.pathname.startsWith('/') ? new URL('.', file).href : null;
}

/** The address of a file in a folder, by the names on the way to it, which may have any characters. */
function resolve(folder, name) {
  return new URL(name.split('/').map(encodeURIComponent).join('/'), folder).href;
}

module.exports = { dirname, resolve };
