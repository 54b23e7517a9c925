'use strict';
// Checks the description of layouts for consistency: fields cover their records without gap or overlap, names are
// unique, records that fields refer to exist. A native test compares it with the native headers.
const assert = require('assert');

/** Bytes of a value. */
const typeBytes = { u8: 1, u32: 4, i32: 4, f32: 4 };

/**
 * An offset or a size: a base, and bytes per count.
 * @typedef {Object<string, number>} Form with the property `base`
 */

/**
 * @param {number|Form} offset
 * @returns {Form}
 */
function formOf(offset) {
  return typeof offset === 'number' ? { base: offset } : Object.assign({ base: 0 }, offset);
}

/** A form without counts of factor 0. */
function reduced(form) {
  const result = { base: form.base };
  for (const key of Object.keys(form)) {
    if (form[key] !== 0) {
      result[key] = form[key];
    }
  }
  result.base = form.base;
  return result;
}

/** Where a field ends. */
function endOf(field, sizes) {
  const form = formOf(field.offset);
  const { count = 1, each = 1 } = field;
  const element = field.of === undefined ? typeBytes[field.type] * each : sizes[field.of];
  assert(element > 0, `${field.name}: no type, or an unknown record`);
  if (typeof count === 'number') {
    form.base += element * count;
  } else {
    form[count] = (form[count] || 0) + element;
  }
  return reduced(form);
}

/** The bytes of a record or a block. */
function extentOf(record, sizes) {
  let end = { base: 0 };
  for (const field of record.fields) {
    const at = `${record.name}.${field.name}`;
    assert.deepStrictEqual(reduced(formOf(field.offset)), end, `${at}: gap or overlap`);
    end = endOf(field, sizes);
    for (const key of Object.keys(end).filter((name) => name !== 'base')) {
      assert((record.parameters || []).includes(key), `${at}: ${key} is not a parameter`);
    }
  }
  return end;
}

/** The same for positions in a call. */
function argumentsOf(record) {
  let next = 0;
  for (const field of record.fields) {
    assert.strictEqual(field.offset, next, `${record.name}.${field.name}: gap or overlap`);
    next += field.optional ? 0 : field.count || 1;
  }
  return { base: next };
}

/** Throws for duplicate names. */
function checkUnique(label, names) {
  assert.strictEqual(new Set(names).size, names.length, `${label}: duplicate name`);
}

/**
 * Throws for an inconsistent description.
 * @param {Object} description
 * @returns {Map<Object, Form>} bytes of each record
 */
function validate({ groups, enums, limits, handles }) {
  const extents = new Map();
  const sizes = {};
  const records = [].concat(...groups.map((group) => group.records));
  records.forEach(({ name, size }) => {
    sizes[name] = size;
  });
  for (const group of groups) {
    for (const record of group.records) {
      const extent = group.unit ? argumentsOf(record) : extentOf(record, sizes);
      if (record.parameters === undefined) {
        assert.deepStrictEqual(extent, { base: record.size }, `${record.name}: not its size`);
      }
      checkUnique(record.name, [
        ...['size', 'bytes', 'required'],
        ...(record.constants || []).map(({ name }) => name),
        ...record.fields.map(({ name }) => name),
      ]);
      extents.set(record, extent);
    }
  }
  const names = [...records, ...enums].map(({ name }) => name);
  checkUnique('layouts', [...names, 'limits', 'handles']);
  for (const { name, values } of [...enums, Object.assign({ name: 'handles' }, handles)]) {
    checkUnique(
      name,
      values.map((value) => value.name)
    );
    checkUnique(
      name,
      values.map((value) => value.value)
    );
  }
  checkUnique(
    'limits',
    limits.map(({ name }) => name)
  );
  return extents;
}

module.exports = { formOf, validate };
