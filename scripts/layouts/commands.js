'use strict';
// Generates the methods of command writers, and the tables of commands that checked mode reads, from the commands of
// the description. Special cases are in lib/commands.js.
const { capital, comment, head, typeNames, types } = require('./source');

const kWordBytes = 4;
const kSource = 'scripts/layouts/description.js';

function commandsOf({ enums }, name) {
  return enums.find((one) => one.name === name).values;
}

/** Doc of a command: its number, words, bytes, and effect. */
function describeWords({ value, command }) {
  const { operands, isBatch, about } = command;
  const names = operands.map(([name]) => name);
  const words = isBatch ? ['n', ...names.map((name) => `n ${name}`)].join(', ') : names.join(', ');
  const bytes = isBatch ? `8 + ${kWordBytes * names.length} n` : kWordBytes * (1 + names.length);
  return `${value}, ${words}; ${bytes} bytes.${about === '' ? '' : ` ${about}`}`;
}

function operandTags({ operands, isBatch }) {
  const isGeneric = operands.some(([, kind]) => kind === 'H');
  return [
    ...(isGeneric ? ['@template {EntityHandle} H'] : []),
    ...operands.map(([name, kind, about = '']) => {
      const type = kind === 'word' ? 'number' : `Handle${isBatch ? 'Array' : 'Like'}<${kind}>`;
      return `@param {${type}} ${name} ${about}`.trim();
    }),
    '@returns {number}',
  ];
}

/** Code that stores a command's number and operands, and adds its length. */
function storeWords(table, name, operands) {
  const bytes = kWordBytes * (1 + operands.length);
  return [
    ...operands.map((operand) => `this._checkWord('${name}', '${operand}', ${operand});`),
    `const at = this._claim('${name}', ${bytes});`,
    'const words = this._words;',
    `words[at] = ${table}.${name};`,
    ...operands.map((operand, i) => `words[at + ${i + 1}] = ${operand};`),
    `words[0] += ${bytes};`,
    'return at * kWordBytes;',
  ];
}

function fixedBody(table, name, operands) {
  if (operands.length === 1 && operands[0] === 'handle') {
    return [`return this._one('${name}', ${table}.${name}, handle);`];
  }
  if (operands.length === 2) {
    const [first, second] = operands;
    const given = `'${first}', ${first}, '${second}', ${second}`;
    return [`return this._pair('${name}', ${table}.${name}, ${given});`];
  }
  return storeWords(table, name, operands);
}

function batchBody(table, name, operands) {
  const [[first, , , one], second] = operands;
  const label = `\`\${this._label}.${name}\``;
  const checks = operands.map(([list]) => `checkHandles(label, '${list}', ${list});`);
  if (second !== undefined) {
    const [other, , , otherOne] = second;
    checks.push(
      `if (${other}.length !== ${first}.length) {`,
      `const found = \`\${${first}.length} ${first} and \${${other}.length} ${other}\`;`,
      `throw new RangeError(\`\${label}: \${found}: give one ${otherOne} for each ${one}.\`);`,
      '}'
    );
  }
  return [
    `const label = ${label};`,
    ...checks,
    `const n = ${first}.length;`,
    `const bytes = 8 + ${kWordBytes * operands.length} * n;`,
    `const at = this._claim('${name}', bytes);`,
    'const words = this._words;',
    `words[at] = ${table}.${name};`,
    'words[at + 1] = n;',
    ...operands.map(([list], i) => `words.set(${list}, at + 2${['', ' + n'][i] || ''});`),
    'words[0] += bytes;',
    'return at * kWordBytes;',
  ];
}

/** A method for a command of word operands. */
function wordsMethod(table, one) {
  const { name, command } = one;
  const { operands, isBatch } = command;
  const names = operands.map(([operand]) => operand);
  const body = isBatch ? batchBody(table, name, operands) : fixedBody(table, name, names);
  return [
    '',
    ...comment(describeWords(one), operandTags(command)),
    `${name}(${names.join(', ')}) {`,
    ...body,
    '}',
  ];
}

/** Parameters and type of a method for a command on values, by operand names. */
const references = {
  'D, S': { type: 'CopyOperands', names: 'd, s, sID, sAt', helper: '_two', note: 'copyNames' },
  'S, D': { type: 'InvertOperands', names: 's, d, dID, dAt', helper: '_two', note: 'invertNames' },
  'A, B, R': { type: 'ThreeOperands', names: 'a, b, r, bAt, rID, rAt', helper: '_three' },
};

/** A method for a command on values. */
function referencesMethod(table, { name, value, command }) {
  const { type, names, helper, note } = references[command.operands.join(', ')];
  const given = [`'${name}'`, `${table}.${name}`, command.bytes, ...(note ? [note] : []), names];
  return [
    '',
    ...comment(`${value}, ${command.about}`, [`@type {${type}}`]),
    `${name}(${names}) {`,
    `return this.${helper}(${given.join(', ')});`,
    '}',
  ];
}

function entityClass(description) {
  const table = 'entityCommands';
  const methods = commandsOf(description, table).map((one) => wordsMethod(table, one));
  return [
    ...comment('Commands of `layout.entityCommands`. Base class of EntityCommandWriter.', [
      '@private',
      "@extends {StreamWriter<Pick<Engine, 'entityCommands'>>}",
    ]),
    'class EntityCommandWriterBase extends StreamWriter {',
    ...[].concat(...methods).slice(1),
    '}',
  ];
}

function flowClass(description) {
  const table = 'matrixFlowCommands';
  const lines = [];
  let family = null;
  for (const one of commandsOf(description, table)) {
    const { command } = one;
    if (command.family !== undefined && command.family !== family) {
      family = command.family;
      lines.push('', `// ${description.flowValues[family].title}`);
    }
    if (command.family !== undefined) {
      lines.push(...referencesMethod(table, one));
    } else if (command.words === undefined) {
      lines.push(...wordsMethod(table, one));
    }
  }
  return [
    ...comment('Commands of `layout.matrixFlowCommands`. Base class of MatrixFlowWriter.', [
      '@private',
      '@extends {OperandWriter}',
    ]),
    'class MatrixFlowWriterBase extends OperandWriter {',
    ...lines.slice(1),
    '}',
  ];
}

/** The base classes of writers. */
function renderWriters(description) {
  const code = [...entityClass(description), '', ...flowClass(description)];
  const text = code.join('\n');
  return [
    ...head('Methods of command writers, each of which writes one command.', kSource),
    "const { entityCommands, matrixFlowCommands } = require('./layout');",
    "const { OperandWriter, StreamWriter, copyNames, invertNames } = require('./stream-writer');",
    "const { checkHandles } = require('./value-checks');",
    '',
    ...typeNames(text, types),
    '',
    `const kWordBytes = ${kWordBytes};`,
    '',
    ...code,
    '',
    'module.exports = { EntityCommandWriterBase, MatrixFlowWriterBase };',
    '',
  ].join('\n');
}

function entityRow({ name, value, command: { operands, isBatch } }) {
  const count = `${isBatch ? 'perElement' : 'operands'}: ${operands.length}`;
  return `[${value}, { name: '${capital(name)}', method: '${name}', ${count} }],`;
}

function flowRow({ name, value, command }) {
  const { family, operands, bytes, checkedBytes, compute, rows } = command;
  if (family === undefined) {
    const words = command.words === undefined ? operands.length : command.words;
    return `[${value}, { name: '${name}', words: ${words} }],`;
  }
  const names = operands.map((operand) => `'${operand}'`).join(', ');
  const own = [`words: ${2 * operands.length}`, `operands: [${names}]`, `bytes: ${bytes}`];
  own.push(`checkedBytes: ${checkedBytes}`);
  if (compute !== undefined) {
    own.push(`compute: (a, b) => fround(${compute})`);
  }
  if (rows !== undefined) {
    own.push(`rows: ${rows}`);
  }
  return `[${value}, { name: '${name}', ${own.join(', ')} }],`;
}

/** The command tables. */
function renderTables(description) {
  return [
    ...head('Tables of all commands, by number, for readers of streams.', kSource),
    '',
    'const { fround } = Math;',
    '',
    ...comment(
      'Name in messages, method of the writer, and operand words, in total or per element.',
      [
        '@type {Map<number, {name: string, method: string, operands: ?number, perElement: ?number}>}',
      ],
      0
    ),
    'const entityCommandTable = new Map([',
    ...commandsOf(description, 'entityCommands').map(entityRow),
    ']);',
    '',
    ...comment(
      'Words after the number; for commands on values also operand names, bytes of a value, bytes of it that native code bounds-checks, and the formula per float, or the rows of a matrix product.',
      ['@type {Map<number, Object>}'],
      0
    ),
    'const matrixFlowTable = new Map([',
    ...commandsOf(description, 'matrixFlowCommands').map(flowRow),
    ']);',
    '',
    'module.exports = { entityCommandTable, matrixFlowTable };',
    '',
  ].join('\n');
}

/**
 * Sources of the generated writers and tables, unformatted.
 * @param {Object} description
 * @returns {Array<{file: string, text: string}>}
 */
function renderCommands(description) {
  return [
    { file: 'lib/command-methods.js', text: renderWriters(description) },
    { file: 'lib/command-tables.js', text: renderTables(description) },
  ];
}

module.exports = { renderCommands };
