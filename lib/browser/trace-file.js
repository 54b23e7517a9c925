'use strict';
// Instead of lib/scene/trace-file.js: a page can't write files by their paths.

function writeWhole(file) {
  const cure = 'offer JSON.stringify(recording) as a download';
  return Promise.reject(
    new Error(`Recording.save: '${file}' can't be written in a browser: ${cure}.`)
  );
}

module.exports = { processId: 1, threadId: 0, writeWhole };
