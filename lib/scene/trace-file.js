'use strict';
// Files of recordings, and what they say of the process.
const fs = require('fs');
const path = require('path');
const { threadId } = require('worker_threads');

/** Makes a name for temporary files that no other recording has. */
let files = 0;

/** An error of the file system with a cure. */
function fileError(error, file) {
  const known = {
    ENOENT: ['there is no such folder', 'make the folder, or give another path'],
    ENOTDIR: ['a part of its path is no folder', 'give another path'],
    EISDIR: ['it is a folder', 'give the path of a file'],
    EACCES: ['permission is denied', 'give a path in a folder of yours'],
    EROFS: ['the file system is read-only', 'give a path in another one'],
    ENOSPC: ['the disk is full', 'make room, or record fewer frames'],
  };
  const [trouble, cure] = known[error.code] || [error.message, 'give another path'];
  const result = new Error(`Recording.save: '${file}' can't be written, ${trouble}: ${cure}.`);
  return Object.assign(result, { code: error.code });
}

/** The file to be replaced: a link stays, and what it leads to is. Null for a device or pipe, which can't be. */
async function findFile(file) {
  try {
    const stats = await fs.promises.stat(file);
    if (!stats.isFile() && !stats.isDirectory()) {
      return null;
    }
    return await fs.promises.realpath(file);
  } catch (error) {
    // There is none yet, or what is wrong with it shows when it is written.
    return file;
  }
}

/** Writes a file whole, or leaves it as it was. */
async function writeWhole(file, text) {
  const replaced = await findFile(file);
  if (replaced === null) {
    await fs.promises.writeFile(file, text).catch((error) => {
      throw fileError(error, file);
    });
    return;
  }
  // Not after the file, whose name may have all the length that there is.
  const temporary = path.join(
    path.dirname(replaced),
    `.nq-trace.${process.pid}.${threadId}.${++files}.tmp`
  );
  let handle = null;
  try {
    handle = await fs.promises.open(temporary, 'wx');
    await handle.writeFile(text);
    await handle.sync();
    await handle.close();
    handle = null;
    await fs.promises.rename(temporary, replaced);
  } catch (error) {
    if (handle !== null) {
      await handle.close().catch(() => {});
    }
    await fs.promises.unlink(temporary).catch(() => {});
    throw fileError(error, file);
  }
}

module.exports = { processId: process.pid, threadId, writeWhole };
