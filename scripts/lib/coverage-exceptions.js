'use strict';
// Lines that no test of `npm run coverage` reaches, with the reason.
const fs = require('fs');
const path = require('path');

/**
 * @typedef {Object} Exception
 * @property {RegExp} files paths from the root
 * @property {RegExp} lines texts, trimmed
 * @property {string} reason
 */

const kEndsProcess = 'ends the process, which then writes no counts: tested in child processes';
const kOutOfMemory = 'needs a heap that is exhausted or a system that fails at this call';
const kOtherProcess = 'tested in processes whose environment takes no counts';
const kBrowser = 'runs in a browser, or on a big-endian machine';
const kCollected = 'depends on when V8 collects: reached in some runs';

/** @type {Exception[]} */
const exceptions = [
  {
    files: /^(Common|Engine|BindingTemp)\//,
    lines: /\b(FailAssertion|FailOnParentCycle|failContent)\(/,
    reason: kEndsProcess,
  },
  {
    files: /^Engine\//,
    lines:
      /^NQ_LOG\("\[NQ_FATAL\]\[Engine\]|^const auto failContent = |^NQ_TRAP\(\);|^Entity::~Entity\(\)/,
    reason: kEndsProcess,
  },
  { files: /\/WorldTransform\.cpp$/, lines: /^queue->Flush\(\);/, reason: kEndsProcess },
  {
    files: /AnimationClipModel\.cpp$/,
    lines: /^(default:|return kNoChannel;)$/,
    reason: kEndsProcess,
  },
  {
    files: /\/(Assert\.cpp|assert\.h)$/,
    lines: /FailAssertion|fflush|fprintf|abort/,
    reason: kEndsProcess,
  },
  {
    files: /BindingEngine\.cpp$/,
    lines:
      /vx::CallbackInfo& \/\*info\*\/|^NQ_ASSERT\(0 && |^BindingEngine\w+::BindingEngine\w+\($/,
    reason: kEndsProcess,
  },
  {
    files: /BindingEngineBase\.h$/,
    lines: /^BindingEngineBase\(\) : core\(nullptr\)/,
    reason: kEndsProcess,
  },
  {
    files: /\/class\.h$/,
    lines: /^host::SetFieldPointer\(object, kWrapperField, nullptr\);/,
    reason: kEndsProcess,
  },
  {
    files: /\/class\.h$/,
    lines: /^thisObject_\.Reset\(\);/,
    reason: 'a wrapper that is deleted before its object was collected: V8 never does that',
  },
  {
    files: /\/(BindingEngineCulling|PublishSegment)\.cpp$/,
    lines: /^std::abort\(\);/,
    reason: kOutOfMemory,
  },
  { files: /CpuAffinity\.h$/, lines: /^return 0;/, reason: kOutOfMemory },
  {
    files: /WorkerPool\.cpp$/,
    lines: /^MutexLock waitLock\(/,
    reason: 'a post during a wait of another thread, which callers must not do',
  },
  {
    files: /\/(CpuAffinity\.h|WorkerPool\.cpp)$/,
    lines:
      /^(inline (int CurrentCpu|void PinToCpu)\(|return -1;|(void|bool) WorkerPool::(RunAll|IsStopped)\(|for \(size_t i = 0; i < count && !IsStopped|Task task\(std::move|task\(\);|MutexLock lock\(state->mutex\);|return state->stopped;)/,
    reason: 'for systems without threads or affinity: tested by the check wasm',
  },
  {
    files: /TargetPose\.h$/,
    lines: /^(rounds\.assign\(|round = 1;)/,
    reason: 'needs 4,294,967,296 evaluations on one thread',
  },

  { files: /^lib\/(load|gltf-library)\.js$/, lines: /./, reason: kOtherProcess },
  {
    files: /^lib\/scene\/inspect\/(server|websocket)\.js$/,
    lines: /./,
    reason: 'depends on the timing of sockets, or on pages that misbehave',
  },
  {
    files: /^lib\/scene\/inspect\/protocol\.js$/,
    lines: /nqProtocol|little-endian/,
    reason: kBrowser,
  },
  {
    files: /^lib\/scene\/changes\.js$/,
    lines: /marks\.fill\(0\)|_flush = 1/,
    reason: 'needs 4,294,967,295 updates of a scene',
  },
  {
    files: /^lib\/checked\/(registry|matrixflow|objects)\.js$|^lib\/view-references\.js$/,
    lines: /\bcollected\b|memoryID|^this\._forget|^return\b|^throw error;/,
    reason: kCollected,
  },
  {
    files: /^lib\/checked\/hint-(blends|records)\.js$/,
    lines: /^return (false|NaN);/,
    reason: 'guard of a missing rest pose: all that a player moves are kept before its update',
  },
  {
    files: /^lib\/checked\/rest-poses\.js$/,
    lines: /^return value < 2 \* kTopBit/,
    reason: 'numbers from 2^31 on, which are handles only after 524,287 batches',
  },
  {
    files: /^lib\/checked\/objects\.js$/,
    lines: /^emptyObjects\.add\(/,
    reason: 'needs 1,048,575 objects of a kind',
  },
  {
    files: /^lib\/wasm\/instance\.js$/,
    lines:
      /^instance\.end = |result \+ 24\)|kCharacterDevice;|^return kDone;|^return kBadDescriptor;/,
    reason: 'for what the C library and the release of an object do not do',
  },
  {
    files: /^lib\/wasm\.js$/,
    lines:
      /logToConsole|let line = |return \(text\)|const lines = |line = lines\.pop|lines\.forEach/,
    reason: kBrowser,
  },
  {
    files: /^lib\/file-bytes\.js$/,
    lines: /./,
    reason: kBrowser,
  },
  {
    files: /^lib\/scene\/three\.js$/,
    lines: /updateRanges|mesh\.bounding(Sphere|Box) = null/,
    reason: 'for newer versions of three.js: tested by the check package',
  },
];

/** The reason why no test reaches a line, or null if it is not listed. */
function exceptionOf(file, text) {
  const found = exceptions.find(({ files, lines }) => files.test(file) && lines.test(text));
  return found === undefined ? null : found.reason;
}

/** Exceptions that match no line of any source, a message each. */
function staleExceptions(root) {
  const sources = [];
  const read = (folder) => {
    for (const item of fs.readdirSync(path.join(root, folder), { withFileTypes: true })) {
      const file = `${folder}/${item.name}`;
      if (item.isDirectory()) {
        read(file);
      } else {
        const text = fs.readFileSync(path.join(root, file), 'utf8');
        sources.push({ file, lines: text.split('\n').map((line) => line.trim()) });
      }
    }
  };
  ['BindingTemp', 'Common', 'Engine', 'js-binding', 'lib'].forEach(read);
  const isUsed = ({ files, lines }) =>
    sources.some(({ file, lines: texts }) => files.test(file) && texts.some((t) => lines.test(t)));
  return exceptions
    .filter((exception) => !isUsed(exception))
    .map(({ files, lines }) => `${files} has no line ${lines}: remove the exception.`);
}

module.exports = { exceptionOf, staleExceptions };
