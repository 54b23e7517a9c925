'use strict';
// Tables in Markdown, aligned for the terminal.

/**
 * A number with about three significant digits.
 * @param {number} value
 * @returns {string}
 */
function short(value) {
  if (!Number.isFinite(value)) {
    return '-';
  }
  const magnitude = Math.abs(value);
  return value.toFixed(magnitude >= 100 ? 0 : magnitude >= 10 ? 1 : 2);
}

/**
 * Prints rows under a heading. Numbers are rounded (integers are not) and right-aligned.
 * @param {string} title
 * @param {string[]} columns
 * @param {Array<Array<string|number>>} rows
 */
function printTable(title, columns, rows) {
  const cells = rows.map((row) =>
    row.map((cell) =>
      typeof cell === 'string' ? cell : Number.isInteger(cell) ? String(cell) : short(cell)
    )
  );
  const widths = columns.map((column, i) =>
    Math.max(3, column.length, ...cells.map((row) => row[i].length))
  );
  const isText = columns.map((_, i) => rows.length > 0 && typeof rows[0][i] === 'string');
  const pad = (cell, i) => (isText[i] ? cell.padEnd(widths[i]) : cell.padStart(widths[i]));
  const line = (row) => `| ${row.map(pad).join(' | ')} |`;
  const rule = widths.map((width, i) =>
    isText[i] ? '-'.repeat(width) : `${'-'.repeat(width - 1)}:`
  );
  console.log(`\n### ${title}\n`);
  console.log(line(columns));
  console.log(`| ${rule.join(' | ')} |`);
  for (const row of cells) {
    console.log(line(row));
  }
}

/**
 * The last row of each kind, by first appearance of kinds: the largest of ascending rows.
 * @template T
 * @param {T[]} rows
 * @param {function(T): string} kindOf
 * @returns {T[]}
 */
function lastOfEach(rows, kindOf) {
  return Array.from(new Map(rows.map((row) => [kindOf(row), row])).values());
}

module.exports = { lastOfEach, printTable };
