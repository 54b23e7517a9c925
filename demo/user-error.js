'use strict';
// The error for what the person at the keyboard can put right.

/** Told in one line, without a stack: its message names the input and the cure. */
class UserError extends Error {}

/**
 * Makes one line of any text: white space becomes a blank, other control characters a question mark.
 * @param {string} text
 * @returns {string}
 */
function oneLine(text) {
  return String(text)
    .replace(/\s+/g, ' ')
    .replace(/\p{Cc}/gu, '?')
    .trim();
}

/**
 * What a failed file operation means, in words.
 * @param {Error} error as thrown by the file system
 * @returns {string}
 */
function fileTrouble(error) {
  const words = {
    ENOENT: 'there is no such file or folder',
    EACCES: 'permission is denied',
    EPERM: 'permission is denied',
    EISDIR: 'it is a folder',
    ENOTDIR: 'part of its path is a file, not a folder',
    EEXIST: 'it is a file, not a folder',
    ENOSPC: 'the disk is full',
    EROFS: 'the disk is read-only',
  };
  return words[error.code] || oneLine(error.message);
}

module.exports = { UserError, oneLine, fileTrouble };
