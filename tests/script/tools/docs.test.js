'use strict';
// Compares documents with the code: docs/errors.md has each log line and failed assertion of the native sources and
// no others, links are not broken, commands exist, and programs print the documented output.
const assert = require('assert');
const fs = require('fs');
const Module = require('module');
const os = require('os');
const path = require('path');
const { spawnSync } = require('child_process');
const { modulePath } = require('../support/host');
const nq = require('../../../lib');
const { importGltf } = require('../../../lib/gltf');
const { Instance } = require('../../../lib/wasm/instance');

const root = path.join(__dirname, '..', '..', '..');
const read = (file) => fs.readFileSync(path.join(root, file), 'utf8');

// --- Native sources.

function nativeFiles(folder) {
  return [].concat(
    ...fs.readdirSync(path.join(root, folder), { withFileTypes: true }).map((entry) => {
      const name = `${folder}/${entry.name}`;
      return entry.isDirectory() ? nativeFiles(name) : /\.(h|cpp)$/.test(name) ? [name] : [];
    })
  );
}

const shippedFolders = ['Common', 'Engine', 'BindingTemp', 'js-binding'];
const shippedFiles = () => ['nq_logic.cpp'].concat(...shippedFolders.map(nativeFiles));

/** C++ without comments; strings stay. */
function withoutComments(text) {
  return text.replace(/"(?:[^"\\\n]|\\.)*"|\/\/[^\n]*|\/\*[^]*?\*\//g, (piece) =>
    piece[0] === '"' ? piece : ' '
  );
}

/** The same without preprocessor lines, which define the macros in question. */
function withoutDirectives(text) {
  return text.replace(/^[ \t]*#(?:[^\n]*\\\n)*[^\n]*$/gm, '');
}

/** Arguments of all calls of a function or macro, verbatim. */
function callsOf(text, name) {
  const calls = [];
  const start = new RegExp(`\\b${name}\\(`, 'g');
  while (start.exec(text) !== null) {
    const parts = [''];
    let depth = 1;
    const piece = /"(?:[^"\\\n]|\\.)*"|'(?:[^'\\\n]|\\.)*'|[^]/g;
    for (piece.lastIndex = start.lastIndex; depth > 0; ) {
      const [token] = piece.exec(text);
      depth += token === '(' || token === '{' ? 1 : token === ')' || token === '}' ? -1 : 0;
      if (token === ',' && depth === 1) {
        parts.push('');
      } else if (depth > 0) {
        parts[parts.length - 1] += token;
      }
    }
    calls.push(parts.map((part) => part.replace(/\s+/g, ' ').trim()));
  }
  return calls;
}

/** Text of one or more adjacent string literals, or of a constant of the file. */
function textOf(argument, text) {
  const constant = new RegExp(`\\b${argument}\\[\\] =\\s*("(?:[^"\\\\]|\\\\.)*");`).exec(text);
  const literal = constant === null ? argument : constant[1];
  assert(/^("(?:[^"\\]|\\.)*" ?)+$/.test(literal), `can't read the text ${argument}`);
  return literal
    .match(/"(?:[^"\\]|\\.)*"/g)
    .map((one) => JSON.parse(one))
    .join('');
}

/** An explicit line number, or '' for that of the source. */
function lineOf(argument, text) {
  if (argument === '__LINE__') {
    return '';
  }
  const constant = new RegExp(`\\b${argument} = (\\d+);`).exec(text);
  const line = constant === null ? argument : constant[1];
  assert(/^\d+$/.test(line), `can't read the line ${argument}`);
  return line;
}

/** Log lines, each a tag and a text, with # for variable parts. */
function logLines(source) {
  const text = withoutDirectives(withoutComments(source));
  return callsOf(text, 'NQ_LOG').map(([tag, format]) => {
    const line = textOf(tag, text) + textOf(format, text);
    return line.replace(/\n$/, '').replace(/%\w/g, '#');
  });
}

/** Assertions as they are reported: expression, file, line. */
function assertions(source, vxFile) {
  const text = withoutDirectives(withoutComments(source));
  const failed = callsOf(text, 'FailAssertion')
    .filter(([expression]) => !expression.startsWith('const char*'))
    .map(([expression, file, line]) => [textOf(expression, text), file, line]);
  return [
    ...failed,
    ...callsOf(text, 'NQ_ASSERT').map(([expression, file]) => [expression, file, '__LINE__']),
    ...callsOf(text, 'NQ_ASSERT_AT'),
    ...callsOf(text, 'VX_ASSERT').map(([expression]) => [expression, `"${vxFile}"`, '__LINE__']),
    ...callsOf(text, 'VX_ASSERT_IN').map(([expression, file]) => [expression, file, '__LINE__']),
  ].map(([expression, file, line]) => [expression, textOf(file, text), lineOf(line, text)]);
}

/** The file that VX_ASSERT names. */
function vxFileOf(header) {
  return /#define VX_ASSERT\(expression\) VX_ASSERT_IN\(expression, "([^"]+)"\)/.exec(header)[1];
}

const unique = (values) => Array.from(new Set(values)).sort();

// --- Documents.

const documents = () => [
  'README.md',
  'CHANGELOG.md',
  ...fs
    .readdirSync(path.join(root, 'docs'))
    .filter((file) => file.endsWith('.md'))
    .map((file) => `docs/${file}`),
];

/** Cells of the rows of the tables under a heading, without header rows. */
function rowsUnder(file, heading) {
  const text = read(file);
  const start = text.indexOf(`\n## ${heading}\n`);
  assert.notStrictEqual(start, -1, `${file} has no "${heading}"`);
  const end = text.indexOf('\n## ', start + 1);
  const lines = text.slice(start, end < 0 ? text.length : end).split('\n');
  return lines
    .filter((line, i) => line.startsWith('|') && !/^\|-/.test(line) && !/^\|-/.test(lines[i + 1]))
    .map((line) =>
      line
        .split('|')
        .slice(1, -1)
        .map((cell) => cell.trim())
    );
}

/** The inline code of a cell. */
function codeOf(cell) {
  const match = /^`([^`]+)`$/.exec(cell);
  assert.notStrictEqual(match, null, `"${cell}" is not all code`);
  return match[1];
}

/** A line of a document with # for variable parts. */
const withoutNumbers = (line) => line.replace(/\b[A-Z]\b/g, '#');

describe('docs/errors.md', () => {
  const sources = shippedFiles().map((file) => read(file));
  const vxFile = vxFileOf(read('js-binding/include/jsbinding/v8/assert.h'));
  const logged = unique([].concat(...sources.map(logLines)));

  it('has all log lines, and no others', () => {
    const rows = rowsUnder('docs/errors.md', 'Log lines');
    assert.deepStrictEqual(unique(rows.map(([line]) => withoutNumbers(codeOf(line)))), logged);
    assert.strictEqual(rows.length, logged.length, 'a line stands there twice');
    for (const [line, cause, cure] of rows) {
      assert.notStrictEqual(cause, '', line);
      assert(cure !== '' || line.includes('NQ_INFO'), `${line} has no cure`);
    }
  });

  it('has all failed assertions by expression, file and explicit line, and no others', () => {
    const rows = rowsUnder('docs/errors.md', 'Failed assertions');
    const named = rows.map(([expression, file, line]) =>
      [codeOf(expression), codeOf(file), line].join(' | ')
    );
    const failing = unique(
      []
        .concat(...sources.map((source) => assertions(source, vxFile)))
        .map((one) => one.join(' | '))
    );
    assert.deepStrictEqual(unique(named), failing);
    assert.strictEqual(rows.length, failing.length, 'an assertion stands there twice');
    for (const [expression, , , cause, cure] of rows) {
      assert(cause !== '' && cure !== '', expression);
    }
  });

  it('describes assertions that name the file whose line they report', () => {
    let reporting = 0;
    for (const source of shippedFiles()) {
      for (const [expression, file, line] of assertions(read(source), vxFile)) {
        if (line === '') {
          ++reporting;
          assert.strictEqual(file, source.replace(/\.\w+$/, ''), `${expression} of ${source}`);
        }
      }
    }
    assert(reporting > 15, String(reporting));
  });

  it('has all results of command buffers', () => {
    const header = read('Engine/MatrixFlow/MatrixFlowCommand.h');
    const results = /enum MatrixFlowResult[^{]*{([^}]*)}/.exec(header)[1];
    const native = results.match(/kMatrixFlow\w+ = \d+/g).map((one) => {
      const [, name, code] = /kMatrixFlow(\w+) = (\d+)/.exec(one);
      return [code, name[0].toLowerCase() + name.slice(1)];
    });
    const rows = rowsUnder('docs/errors.md', 'Results of command buffers');
    assert.deepStrictEqual(
      rows.map(([code, name]) => [code, codeOf(name)]),
      native
    );
    const lines = rows.map(([, , line]) => line).filter((line) => !line.startsWith('none'));
    assert.deepStrictEqual(
      unique(lines.map((line) => `#${withoutNumbers(codeOf(line))}`)),
      unique(
        logged
          .filter((line) => line.includes('[MatrixFlow]'))
          .map((line) => line.replace(/^.*?: /, '#'))
      )
    );
  });

  it('has all log lines that other documents quote', () => {
    for (const file of documents()) {
      for (const quoted of read(file).match(/`\[NQ_\w+\]\[\w+\]: [^`]*`/g) || []) {
        assert(logged.includes(withoutNumbers(codeOf(quoted))), `${file} quotes ${quoted}`);
      }
    }
  });

  // Code that writes or ends the process by other means would escape the tests above.
  it('covers all ways of native code to write messages and to end the process', () => {
    const writes = /\b(v?f?printf|f?puts|putchar|fwrite|perror|cout|cerr|clog)\b/;
    const ends = /\b(abort|exit|_Exit|quick_exit|terminate)\(/;
    const own = /^(Common\/Def\/(Assert|Log)\.|js-binding\/include\/jsbinding\/v8\/assert\.h$)/;
    const others = shippedFiles().filter((file) => !own.test(file));
    const code = (file) => withoutDirectives(withoutComments(read(file)));
    assert.deepStrictEqual(
      others.filter((file) => writes.test(code(file))),
      []
    );
    const silent = others.filter((file) => ends.test(code(file)));
    assert.notStrictEqual(silent.length, 0);
    const rows = rowsUnder('docs/errors.md', 'Other ends').map((row) => row.join(' '));
    for (const file of silent) {
      const name = `\`${file.replace(/\.\w+$/, '')}\``;
      assert(
        rows.some((row) => row.startsWith('abort without a line') && row.includes(name)),
        `${file} ends the process, and docs/errors.md has no ${name}`
      );
    }
  });

  it('is compared with a non-empty list from the sources', () => {
    const sample = String.raw`
      // NQ_LOG("[X]: ", "in a comment");
      #define VX_ASSERT(expression) \
        FailAssertion(#expression, "a", __LINE__)
      constexpr char kSource[] = "..\\b";
      constexpr int kLine = 12;
      void FailAssertion(const char* expression, const char* file, int line);
      NQ_LOG("[X]: ", "one, (%d)\n",
             static_cast<int>(f(a, b)));
      NQ_LOG("[X]: ", "two " "pieces");
      FailAssertion("0", kSource, kLine);
      NQ_ASSERT(f(a, ')') <
                    2, "c");
      NQ_ASSERT_AT(x, "d", 7);
      VX_ASSERT(!y);
      VX_ASSERT_IN(z, "e");`;
    assert.deepStrictEqual(logLines(sample), ['[X]: one, (#)', '[X]: two pieces']);
    assert.deepStrictEqual(assertions(sample, 'vx'), [
      ['0', '..\\b', '12'],
      ["f(a, ')') < 2", 'c', ''],
      ['x', 'd', '7'],
      ['!y', 'vx', ''],
      ['z', 'e', ''],
    ]);
  });
});

describe('errors of the library in docs/errors.md', () => {
  const { getEngine } = require(modulePath);
  const engine = getEngine();
  const batch = engine.createEntity(true, 2);
  const view = new nq.Entity3DView(batch);

  /** Imports a model with `find` as the resolver of the importer's package. */
  async function importBeside(find) {
    const load = Module._load;
    Module._load = (request, ...rest) =>
      request === '@gltf-transform/core' ? find(request) : load(request, ...rest);
    try {
      await importGltf(Buffer.from('{"asset":{"version":"2.0"}}'));
    } finally {
      Module._load = load;
    }
  }

  /** Errors of programs; docs/errors.md must have the message of each. */
  const wrongs = {
    'no such module': () => nq.load('no/such/file.node'),
    'a batch that is too large': () => new nq.Entity3DView(engine.createEntity(true, 4096)),
    'a view of another kind': () => new nq.Entity3DView(engine.createEntity(false, 1)),
    'a range between two words': () =>
      new nq.CullingObjectsView({
        id: 1,
        buffer: { buffer: new ArrayBuffer(64), byteOffset: 2, byteLength: 28 },
      }),
    'a range beyond its buffer': () =>
      new nq.CullingObjectsView({
        id: 1,
        buffer: { buffer: new ArrayBuffer(64), byteOffset: 40, byteLength: 28 },
      }),
    'an index past the end': () => view.setPosition(2, 0, 0, 0),
    'a missing number': () => view.setPosition(0, 0, 0),
    'a handle with a fraction': () => new nq.HandleList(2).append(0.5),
    'a getter without room': () => view.worldMatrix(0, []),
    'a full stream': () => {
      const writer = new nq.EntityCommandWriter({ entityCommands: new ArrayBuffer(12) });
      writer.addRoot(1);
      writer.addRoot(2);
    },
    'a full list': () =>
      new nq.DirtyListWriter({ dirtyEntities: new ArrayBuffer(8) }).appendRange(1, 2),
    'a stream written by hand': () =>
      new nq.EntityCommandWriter({ entityCommands: Uint32Array.of(3, 0, 0).buffer }).addRoot(1),
    'an operand past its block': () => {
      const writer = new nq.MatrixFlowWriter(
        { buffer: new ArrayBuffer(64) },
        { blockSizes: new Map([[5, 24]]) }
      );
      writer.vector3Copy(5, 0, 5, 16);
    },
    'a clip without frames': () =>
      nq.buildClip({ name: 'walk', framesPerSecond: 30, frameCount: 0, curves: [] }),
    'no such model': () => importGltf('no/such/file.glb'),
    'an importer without its package': () =>
      importBeside((request) => {
        const error = new Error(`Cannot find module '${request}'`);
        throw Object.assign(error, { code: 'MODULE_NOT_FOUND' });
      }),
    'an importer with a package of another shape': () => importBeside(() => ({})),
    // The module itself needs newer hosts than the reference.
    'a memory that is full': () => {
      const memory = new WebAssembly.Memory({ initial: 64, maximum: 64 });
      const instance = new Instance(memory, () => {});
      instance.exports = { nqHasRoom: () => 0 };
      instance.reserve('Engine.createEntity', 337920);
    },
    'what checked mode refuses': () => nq.checked(getEngine()).createEntity(true, 4096),
  };

  const words = {
    VIEW: '[A-Z]\\w*',
    WRITER: '[A-Z]\\w*',
    METHOD: '[a-z][A-Za-z0-9]*',
    NAME: "[^:']+",
    VALUE: '.+',
  };

  function patternOf(message) {
    const literal = message.replace(/[\\^$.*+?()[\]{}|]/g, '\\$&').replace('…', '[^]+');
    return new RegExp(`^${literal.replace(/\b[A-Z]+\b/g, (word) => words[word] || '\\d+')}$`);
  }

  it('are listed by message, each in its own row', async () => {
    const rows = rowsUnder('docs/errors.md', 'Errors of the library');
    const messages = rows.map(([message]) => /^`([^`]+)`/.exec(message)[1]);
    const met = new Set();
    for (const what of Object.keys(wrongs)) {
      let message = null;
      try {
        await wrongs[what]();
      } catch (error) {
        message = error.message.replace(/\s+/g, ' ');
      }
      assert.notStrictEqual(message, null, `${what} throws nothing`);
      const row = messages.findIndex((one) => patternOf(one).test(message));
      assert.notStrictEqual(row, -1, `${what}: ${message}`);
      assert(!met.has(row), `${what}: ${message} is "${messages[row]}", as another is`);
      met.add(row);
    }
    assert.strictEqual(met.size, messages.length, 'a row without a case');
  });

  it('names all error classes, and their codes', () => {
    const folder = ['lib', 'lib/checked'];
    const files = [].concat(
      ...folder.map((one) =>
        fs
          .readdirSync(path.join(root, one))
          .filter((file) => file.endsWith('.js'))
          .map((file) => read(`${one}/${file}`))
      )
    );
    const found = (pattern) => unique([].concat(...files.map((text) => text.match(pattern) || [])));
    const kinds = found(/\b\w*Error(?=\()/g).filter((kind) => /^[A-Z]/.test(kind));
    const codes = found(/\bERR_\w+/g);
    assert(kinds.includes('RangeError') && codes.length > 0);
    const section = read('docs/errors.md').split('\n## Errors of the library\n')[1];
    for (const name of [...kinds, ...codes]) {
      assert(section.includes(`\`${name}\``), `docs/errors.md does not speak of ${name}`);
    }
  });
});

// --- Links, commands, programs.

/** Text outside of fenced blocks and inline code. */
function prose(text) {
  return text
    .replace(/^```[^]*?^```$/gm, '')
    .replace(/`[^`\n]*`/g, (code) => code.replace(/[[\]()]/g, ' '));
}

/** Anchors of the headings of a document, as Git hosting services generate them. */
function anchorsOf(text) {
  const seen = new Map();
  return text
    .replace(/^```[^]*?^```$/gm, '')
    .split('\n')
    .filter((line) => /^#+ /.test(line))
    .map((line) => {
      const slug = line
        .replace(/^#+ /, '')
        .replace(/\[([^\]]*)\]\([^)]*\)/g, '$1')
        .toLowerCase()
        .replace(/[^\p{L}\p{N}\- _]/gu, '')
        .replace(/ /g, '-');
      const times = seen.get(slug) || 0;
      seen.set(slug, times + 1);
      return times === 0 ? slug : `${slug}-${times}`;
    });
}

/** Broken links. */
function brokenLinks(file, text, exists, textAt) {
  const broken = [];
  for (const link of prose(text).match(/\]\([^)\s]+\)/g) || []) {
    const target = link.slice(2, -1);
    if (/^[a-z]+:/.test(target)) {
      continue;
    }
    const [name, anchor] = target.split('#');
    const at = name === '' ? file : path.posix.join(path.posix.dirname(file), name);
    if (!exists(at)) {
      broken.push(`${file}: there is no ${target}`);
    } else if (anchor !== undefined && !anchorsOf(textAt(at)).includes(anchor)) {
      broken.push(`${file}: ${at} has no heading #${anchor}`);
    }
  }
  return broken;
}

describe('documents', () => {
  const exists = (file) => fs.existsSync(path.join(root, file));

  it('have no broken links', () => {
    const broken = documents().map((file) => brokenLinks(file, read(file), exists, read));
    assert.deepStrictEqual([].concat(...broken), []);
  });

  it('are checked by a test that finds broken links', () => {
    const texts = { 'docs/a.md': '# One `two`: "three"\n\n```\n# four\n```\n# One two three\n' };
    const check = (text) =>
      brokenLinks(
        'docs/b.md',
        text,
        (file) => file in texts || file === 'docs/b.md',
        (file) => texts[file] || text
      ).length;
    assert.strictEqual(check('[x](a.md) [x](a.md#one-two-three) [x](https://example.org)'), 0);
    assert.strictEqual(check('[x](a.md#one-two-three-1) `[x](c.md)`\n\n# Y\n\n[x](#y)'), 0);
    assert.strictEqual(check('[x](c.md)'), 1);
    assert.strictEqual(check('[x](a.md#four) ![x](../d.png)'), 2);
    assert.strictEqual(check('[x](#y)'), 1);
  });

  it('are all in the index of README.md, with pictures', () => {
    const readme = read('README.md');
    for (const file of fs.readdirSync(path.join(root, 'docs'))) {
      assert(readme.includes(`(docs/${file})`), `README.md does not link docs/${file}`);
    }
  });

  it('name existing npm commands and checks, and building.md all of them', () => {
    const scripts = Object.keys(JSON.parse(read('package.json')).scripts);
    // Requiring it would run the checks.
    const table = /const checks = \{\n([^]*?)\n\};/.exec(read('scripts/check.js'))[1];
    const checks = table.match(/^ {2}\w+(?=: \{)/gm).map((name) => name.trim());
    assert(checks.includes('layering') && scripts.includes('check'));
    for (const file of documents()) {
      for (const [, name, rest] of read(file).matchAll(/\bnpm run ([\w:-]+)((?: -- [\w ]+)?)/g)) {
        assert(scripts.includes(name), `${file}: npm run ${name}`);
        if (name === 'check') {
          const named = rest.slice(4).split(' ').filter(Boolean);
          named.forEach((one) => assert(checks.includes(one), `${file}: check ${one}`));
        }
      }
    }
    const building = read('docs/building.md');
    for (const name of scripts.filter((one) => !['test', 'prepack'].includes(one))) {
      assert(building.includes(`\`npm run ${name}`), `docs/building.md has no npm run ${name}`);
    }
    const rows = rowsUnder('docs/building.md', 'Checks');
    const named = [].concat(...rows.map(([names]) => names.split(', ').map(codeOf)));
    assert.deepStrictEqual(named.sort(), checks.sort());
  });

  it('name all exports of the library, and existing methods of its classes', () => {
    const api = read('docs/api.md');
    const section = api.slice(api.indexOf('## The library'), api.indexOf('## The module'));
    for (const name of Object.keys(nq)) {
      assert(new RegExp(`\\b${name}\\b`).test(section), `docs/api.md has no ${name}`);
    }
    const classes = section.match(/^\| `\w+\([^\n]*$/gm).filter((row) => /^\| `[A-Z]/.test(row));
    assert(classes.length >= 14);
    for (const row of classes) {
      const cells = row.split('|').map((cell) => cell.trim());
      const name = /^`(\w+)/.exec(cells[1])[1];
      assert.strictEqual(typeof nq[name], 'function', `docs/api.md: ${name}`);
      const text = Object.getOwnPropertyNames(nq[name].prototype);
      const base = Object.getOwnPropertyNames(Object.getPrototypeOf(nq[name].prototype));
      // Properties that constructors set are not on the prototype.
      for (const [, method] of cells[cells.length - 2].matchAll(/`(\w+)\([^`]*`/g)) {
        assert(text.concat(base).includes(method), `docs/api.md: ${name} has no ${method}`);
      }
    }
  });

  it('state the actual limits', () => {
    const limits = read('docs/limits.md');
    const { batch, commandBytes, dirtyEntities, freeSlots, slots } = nq.layout.limits;
    for (const number of [slots, dirtyEntities, commandBytes, nq.layout.limits.wholeFrames]) {
      assert(limits.includes(number.toLocaleString('en-US')), `docs/limits.md has no ${number}`);
    }
    for (const number of [batch, freeSlots]) {
      assert(limits.includes(` ${number} `), `docs/limits.md has no ${number}`);
    }
  });
});

/** The programs of a document, each with the output block that follows it. */
function programsOf(file) {
  const pattern = /^```js\n([^]*?)^```\n\n(?:[^\n]+\n)*?\n?```text\n([^]*?)^```$/gm;
  return Array.from(read(file).matchAll(pattern), ([, program, output]) => ({ program, output }));
}

/** Runs a program as if it were in the folder of README.md. */
function runProgram(program) {
  assert(/require\('\.\/(lib|scene)'\)/.test(program), program);
  const at = path.join(fs.mkdtempSync(path.join(os.tmpdir(), 'nq-docs-')), 'program.js');
  const inRoot = (_, name) => `require(${JSON.stringify(path.join(root, name))})`;
  fs.writeFileSync(at, program.replace(/require\('\.\/(lib|scene)'\)/g, inRoot));
  const env = Object.assign({}, process.env, { NQ_MODULE: modulePath });
  const child = spawnSync(process.execPath, [at], { encoding: 'utf8', env });
  fs.unlinkSync(at);
  fs.rmdirSync(path.dirname(at));
  assert.strictEqual(child.status, 0, child.stderr);
  return child.stdout;
}

describe('programs of documents', () => {
  for (const file of ['README.md', 'docs/first-scene.md', 'docs/limits.md']) {
    it(`${file}: print the documented output`, () => {
      const programs = programsOf(file);
      assert.notStrictEqual(programs.length, 0);
      for (const { program, output } of programs) {
        assert.strictEqual(runProgram(program), output);
      }
    });
  }

  it('docs/animation.md: form one program, which prints the numbers of its comments', () => {
    const blocks = Array.from(read('docs/animation.md').matchAll(/^```js\n([^]*?)^```$/gm));
    const printed = runProgram(blocks.map(([, block]) => block).join(''));
    const expected = [[0, 1, 0], [1, 1, 0], 'false', 'true', [68.4, 21.6], [1.5], [0, 21.6]];
    const lines = printed.trim().split('\n');
    assert.strictEqual(lines.length, expected.length, printed);
    expected.forEach((values, i) => {
      if (typeof values === 'string') {
        assert.strictEqual(lines[i], values);
        return;
      }
      const numbers = lines[i].replace(/^\w+\(\d+\)/, '').match(/-?[\d.]+(e-?\d+)?/g);
      assert.strictEqual(numbers.length, values.length, lines[i]);
      values.forEach((value, k) => assert(Math.abs(numbers[k] - value) < 0.05, lines[i]));
    });
  });
});
