'use strict';
// Generates the views of records: index method, getter and setter of each field, each in full, so that the code of a
// view is as fast as a hand-written class. Special cases are in subclasses: lib/view-entities.js and others.
const { capital, comment, head, typeNames, types } = require('./source');

/**
 * How a view accesses a field.
 * @typedef {Object} Accessor
 * @property {string} name of the getter
 * @property {Object} field
 * @property {?string} index name of the index; null for a single field of a block
 * @property {?string} bound property with the number of elements
 * @property {string} array 'u8', 'u32' or 'f32'
 * @property {string} at code of the index in that array
 * @property {?string} stride code of the record's start in that array
 */

/** Bytes per element of an array of the view. */
const kArrays = { u8: 1, u32: 4, f32: 4 };

function constantOf(record, name) {
  return `k${capital(record.name)}${capital(name)}`;
}

/** Constants of a file, by name. */
class Constants {
  constructor() {
    this.lines = new Map();
  }

  add(name, bytes, unit) {
    const isSum = bytes.includes('+');
    this.lines.set(name, unit === 1 ? bytes : `${isSum ? `(${bytes})` : bytes} / ${unit}`);
    return name;
  }
}

/** Accessors of the fields of an array of records that starts at `base` of a block. */
function elementAccessors(record, base, bound, constants) {
  return record.fields
    .filter(({ view }) => view !== undefined)
    .map((field) => {
      const unit = kArrays[field.type];
      const sized = unit === 1 ? 'Bytes' : 'Stride';
      const stride = constants.add(constantOf(record, sized), `${record.name}.size`, unit);
      const offset = `${record.name}.${field.name}`;
      const start = constants.add(
        constantOf(record, field.name),
        base === null ? offset : `${base} + ${offset}`,
        unit
      );
      return {
        name: field.view.name || field.name,
        field,
        index: 'i',
        bound,
        array: field.type,
        stride: `i * ${stride}`,
        start,
        at: `i * ${stride} + ${start}`,
      };
    });
}

/** Accessors of a field of a block. */
function blockAccessors(record, field, records, constants) {
  const at = `${record.name}.${field.name}`;
  if (field.of !== undefined) {
    const element = records.get(field.of);
    const base = field.offset === 0 ? null : at;
    return elementAccessors(element, base, field.count, constants);
  }
  if (field.view === undefined) {
    return [];
  }
  const isArray = typeof field.count === 'string';
  const isFixed = typeof field.offset === 'number';
  const start = isFixed
    ? constants.add(constantOf(record, field.name), at, kArrays[field.type])
    : `this._${field.name}`;
  const index = isArray ? field.view.index || 'i' : null;
  return [
    {
      name: field.view.name || field.name,
      field,
      index,
      bound: isArray ? field.count : null,
      array: field.type,
      stride: null,
      start,
      at: isArray ? `${start} + ${index}` : start,
    },
  ];
}

function isNumber({ array, field: { view } }) {
  return array === 'f32' && view.holds !== 'boolean';
}

/** True for a field that refers to an object by its handle. */
function isHandle({ field: { view } }) {
  return view.holds !== undefined && view.holds !== 'boolean' && view.holds !== 'bits';
}

/** JSDoc type of a value; a parameter also accepts plain numbers for handles, and the objects that have them. */
function typeOf({ field: { view } }, isParameter) {
  if (view.holds === 'boolean') {
    return 'boolean';
  }
  if (view.holds === undefined || view.holds === 'bits') {
    return 'number';
  }
  return isParameter ? `ObjectOrHandle<${view.holds}>` : view.holds;
}

function parameter(type, name, units) {
  return `@param {${type}} ${name}${units[name] === undefined ? '' : ` ${units[name]}`}`;
}

function method(about, tags, name, parameters, body) {
  return ['', ...comment(about, tags), `${name}(${parameters.join(', ')}) {`, ...body, '}'];
}

function checkIndex(name, { index, bound }) {
  return index === null
    ? []
    : [
        `if (${index} >>> 0 !== ${index} || ${index} >= this.${bound}) {`,
        `this._failIndex('${name}', '${index}', ${index}, this.${bound});`,
        '}',
      ];
}

function indexTag(accessor) {
  const { index, field } = accessor;
  return index === null ? [] : [parameter('number', index, field.view.units || {})];
}

function indexMethod(accessor) {
  const { name, field, index, array, at } = accessor;
  const tags = [`@param {number} ${index}`, '@returns {number}'];
  const about = `Index in \`${array}\` of ${field.view.at}.`;
  return method(about, tags, `${name}At`, [index], [`return ${at};`]);
}

/** A getter that fills an output array. */
function copyMethod(accessor, name, about, at, count) {
  const tags = [
    '@template {NumberArray} Out',
    ...indexTag(accessor),
    `@param {Out} out ${count} numbers`,
    '@param {number} [at]',
    '@returns {Out}',
  ];
  return method(
    about,
    tags,
    name,
    [accessor.index, 'out', 'at = 0'],
    [
      ...checkIndex(name, accessor),
      `if (!hasRoom(out, at, ${count})) {`,
      `this._failOut('${name}', out, at, ${count});`,
      '}',
      `return copyOut(this.f32, ${at}, ${count}, out, at);`,
    ]
  );
}

function getMethods(accessor) {
  const { name, field, index, array, at } = accessor;
  const { view, count } = field;
  if (typeof count === 'number') {
    const parts = view.parts || [];
    return [
      ...copyMethod(accessor, name, view.get, at, count),
      ...[].concat(
        ...parts.map((part) =>
          copyMethod(accessor, part.name, part.get, `${at} + ${part.from}`, part.count)
        )
      ),
    ];
  }
  const tags = [
    ...(index === null ? [] : [`@param {number} ${index}`]),
    `@returns {${typeOf(accessor, false)}}`,
  ];
  const isFlag = view.holds === 'boolean' ? ' !== 0' : '';
  return method(view.get, tags, name, index === null ? [] : [index], [
    ...checkIndex(name, accessor),
    `return this.${array}[${at}]${isFlag};`,
  ]);
}

/** Name of the word that a handle is written as. */
function wordOf(value) {
  return value === 'handle' ? 'word' : `${value}Word`;
}

/** Code that throws for values of the wrong type; consecutive numbers share one check. */
function checkValues(name, given) {
  const lines = [];
  for (let i = 0; i < given.length; ++i) {
    const { accessor, value } = given[i];
    const { holds } = accessor.field.view;
    if (isNumber(accessor)) {
      const names = [value];
      for (; i + 1 < given.length && isNumber(given[i + 1].accessor); ++i) {
        names.push(given[i + 1].value);
      }
      const list = names.map((one) => `'${one}'`).join(', ');
      lines.push(
        `if (${names.map((one) => `typeof ${one} !== 'number'`).join(' || ')}) {`,
        `this._failNumbers('${name}', [${list}], [${names.join(', ')}]);`,
        '}'
      );
    } else if (isHandle(accessor)) {
      lines.push(
        `const ${wordOf(value)} = typeof ${value} === 'number' ? ${value} : ` +
          `this._handleOf('${name}', '${value}', ${value});`,
        `if (${wordOf(value)} >>> 0 !== ${wordOf(value)}) {`,
        `this._failWord('${name}', '${value}', ${wordOf(value)});`,
        '}'
      );
    } else if (holds !== 'boolean') {
      if (accessor.array === 'u8') {
        throw new Error(
          `${accessor.name}: a byte field with a setter must be a boolean: set holds.`
        );
      }
      const isSigned = holds === 'bits' ? ` && (${value} | 0) !== ${value}` : '';
      lines.push(
        `if (${value} >>> 0 !== ${value}${isSigned}) {`,
        `this._failWord('${name}', '${value}', ${value});`,
        '}'
      );
    }
  }
  return lines;
}

/** Code that stores values: a vector, several words of an element, or single words. */
function storeValues(accessors, given) {
  const stored = (accessor, value) => {
    if (isHandle(accessor)) {
      return wordOf(value);
    }
    return accessor.field.view.holds === 'boolean' ? `${value} ? 1 : 0` : value;
  };
  const [first] = accessors;
  if (typeof first.field.count === 'number') {
    const [vector, others] = [given.slice(0, first.field.count), given.slice(first.field.count)];
    return [
      'const { f32 } = this;',
      `const from = ${first.at};`,
      ...vector.map(({ value }, i) => `f32[from${i === 0 ? '' : ` + ${i}`}] = ${value};`),
      ...others.map(({ accessor, value }) => `f32[${accessor.at}] = ${value};`),
    ];
  }
  const shared = accessors.length > 1 && accessors.every(({ stride }) => stride !== null);
  const placeOf = ({ start, at }) => (shared ? `from + ${start}` : at);
  return [
    ...(shared ? [`const from = ${first.stride};`] : []),
    ...given.map(({ accessor, value }) => {
      return `this.${accessor.array}[${placeOf(accessor)}] = ${stored(accessor, value)};`;
    }),
    ...[].concat(
      ...given
        .filter(({ accessor }) => isHandle(accessor))
        .map(({ accessor, value }) => [
          `if (${wordOf(value)} !== ${value} || this._references.count !== 0) {`,
          `this._refer(${placeOf(accessor)}, ${value}, ${wordOf(value)});`,
          '}',
        ])
    ),
  ];
}

function setMethod(name, about, accessors, names, units) {
  const [first] = accessors;
  const given = [];
  for (const accessor of accessors) {
    accessor.field.view.values.forEach((value) => {
      given.push({ accessor, value: names === undefined ? value : names[given.length] });
    });
  }
  const all = Object.assign({}, ...accessors.map(({ field }) => field.view.units), units);
  const tags = [
    ...(first.index === null ? [] : [parameter('number', first.index, all)]),
    ...given.map(({ accessor, value }) => parameter(typeOf(accessor, true), value, all)),
  ];
  const parameters = given.map(({ value }) => value);
  return method(
    about,
    tags,
    name,
    first.index === null ? parameters : [first.index, ...parameters],
    [...checkIndex(name, first), ...checkValues(name, given), ...storeValues(accessors, given)]
  );
}

/** The constructor and `handle()`. */
function beginning(record, records, accessors) {
  const { view } = record;
  const { argument, object, maker } = view;
  const bytes = accessors.filter(({ array }) => array === 'u8').map(({ name }) => `\`${name}\``);
  const isBatch = record.parameters === undefined;
  const label = view.class;
  const lines = [
    ...comment('', [`@param {${object}} ${argument} returned by \`${maker}\``]),
    `constructor(${argument}) {`,
    ...(view.count === undefined
      ? [`super('${label}', ${argument}, '${maker}');`]
      : [`const maker = '${maker}';`, `super('${label}', ${argument}, maker);`]),
  ];
  if (view.count !== undefined) {
    const list = record.fields.find(({ of }) => of !== undefined);
    const [property, from, element] = isBatch
      ? ['count', '0', record]
      : [list.count, `${record.name}.${list.name}`, records.get(list.of)];
    lines.push(
      ...comment(view.count, ['@type {number}', '@readonly'], 2),
      `this.${property} = countElements('${label}', this, ${from}, ${element.name}.size, maker);`
    );
  }
  if (bytes.length > 0) {
    const about = `The records as bytes, for ${bytes.join(' and ')}.`;
    lines.push(
      ...comment(about, ['@type {Uint8Array}', '@readonly'], 2),
      'this.u8 = this._bytes();'
    );
  }
  if (accessors.some((accessor) => isHandle(accessor) && accessor.field.view.set !== undefined)) {
    lines.push('this._keepReferences();');
  }
  lines.push('}');
  if (isBatch) {
    const about = view.handleAbout || `Handle of ${view.element} i.`;
    const tags = ['@param {number} i', `@returns {${view.handle}}`];
    const body = [...checkIndex('handle', { index: 'i', bound: 'count' }), 'return this.id + i;'];
    lines.push(...method(about, tags, 'handle', ['i'], body));
  }
  return lines;
}

function renderClass(record, records, constants) {
  const { view } = record;
  const isBatch = record.parameters === undefined;
  const accessors = isBatch
    ? elementAccessors(record, null, 'count', constants)
    : [].concat(...record.fields.map((field) => blockAccessors(record, field, records, constants)));
  const lines = beginning(record, records, accessors);
  for (const accessor of accessors.filter(({ field }) => field.view.at !== undefined)) {
    lines.push(...indexMethod(accessor));
  }
  const pending = new Map(view.setters ? view.setters.map((one) => [one.name, one]) : []);
  const written = new Set();
  for (const accessor of accessors) {
    const { name, field } = accessor;
    lines.push(...getMethods(accessor));
    if (field.view.set !== undefined) {
      lines.push(...setMethod(`set${capital(name)}`, field.view.set, [accessor]));
    }
    written.add(name);
    for (const setter of Array.from(pending.values())) {
      if (setter.sets.every((one) => written.has(one))) {
        const parts = setter.sets.map((one) => accessors.find((other) => other.name === one));
        lines.push(...setMethod(setter.name, setter.about, parts, setter.values, setter.units));
        pending.delete(setter.name);
      }
    }
  }
  if (pending.size > 0) {
    throw new Error(`${view.class}: no getters for ${Array.from(pending.keys()).join(', ')}`);
  }
  const name = view.isBase ? `${view.class}Base` : view.class;
  const about = view.isBase
    ? comment(`Accessors of \`layout.${record.name}\`. Base class of ${view.class}.`, [
        '@private',
        `@extends {BlockView<${view.object}>}`,
      ])
    : comment(view.about, [`@extends {BlockView<${view.object}>}`]);
  return { name, lines: [...about, `class ${name} extends BlockView {`, ...lines, '}'] };
}

/**
 * Sources of the generated views, unformatted.
 * @param {Object} description
 * @returns {Array<{file: string, text: string}>}
 */
function renderViews({ groups }) {
  const all = [].concat(...groups.map((group) => group.records));
  const records = new Map(all.map((record) => [record.name, record]));
  const shown = all.filter(({ view }) => view !== undefined);
  return Array.from(new Set(shown.map(({ view }) => view.file))).map((file) => {
    const constants = new Constants();
    const own = shown.filter(({ view }) => view.file === file);
    const classes = own.map((record) => renderClass(record, records, constants));
    const code = [].concat(...classes.map(({ lines }) => ['', ...lines]));
    const kept = own
      .filter(({ view }) => !view.isBase)
      .map(({ name, parameters, view }) => {
        const bytes = parameters === undefined ? `${name}.size` : `${name}.bytes(1)`;
        return `keepShape(new ${view.class}({ id: 0, buffer: new ArrayBuffer(${bytes}) }));`;
      });
    const values = Array.from(constants.lines, ([name, value]) => `const ${name} = ${value};`);
    const text = [...values, ...code, ...kept].join('\n');
    // Without comments, which also name records.
    const program = text.replace(/\/\*\*[^]*?\*\//g, '');
    const layouts = all
      .map(({ name }) => name)
      .filter((name) => new RegExp(`\\b${name}\\.`).test(program));
    const base = ['BlockView', 'copyOut', 'countElements', 'hasRoom'].filter((name) =>
      program.includes(name)
    );
    const lines = [
      ...head(
        `Views of records: index method, getter and setter per field. See docs/layouts.md for the bytes.`,
        'scripts/layouts/description.js'
      ),
      `const { ${layouts.join(', ')} } = require('./layout');`,
      ...(kept.length > 0 ? ["const { keepShape } = require('./value-checks');"] : []),
      `const { ${base.join(', ')} } = require('./view-base');`,
      '',
      ...typeNames(text, types),
      '',
      '// Offsets from the start of a block, and strides, in words; of bytes in bytes.',
      ...values,
      ...code,
      '',
      ...kept,
      '',
      `module.exports = { ${classes.map(({ name }) => name).join(', ')} };`,
      '',
    ];
    return { file: `lib/view-${file}-records.js`, text: lines.join('\n') };
  });
}

module.exports = { renderViews };
