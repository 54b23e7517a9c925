'use strict';
// Instead of lib/scene/inspect/inspector.js: a page can't be a server.

function openInspector() {
  const cure = 'inspect the scene in Node.js, or record it by Scene.record';
  return Promise.reject(
    new Error(`Scene.inspect: a browser can't serve the inspector's page: ${cure}.`)
  );
}

module.exports = { openInspector };
