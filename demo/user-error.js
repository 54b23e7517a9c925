'use strict';
// Errors that the user can fix.

/** Printed in one line, without a stack: its message names the input and the cure. */
class UserError extends Error {}

/**
 * Reduces a text to one line: white space becomes a space, other control characters a question mark.
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
 * A readable description of a failed file operation.
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
