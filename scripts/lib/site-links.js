'use strict';
// Verifies links within a built site: each must lead to an existing file and, if it names an anchor, to an existing
// one.
const fs = require('fs');
const path = require('path');
const { sourceOf } = require('./site-pages');

const entities = { amp: '&', lt: '<', gt: '>', quot: '"', '#39': "'" };
const decoded = (text) => text.replace(/&(amp|lt|gt|quot|#39);/g, (all, name) => entities[name]);

/** Files below a folder, as paths from it with slashes. */
function filesBelow(folder, prefix = '') {
  return [].concat(
    ...fs.readdirSync(path.join(folder, prefix), { withFileTypes: true }).map((entry) => {
      const name = `${prefix}${entry.name}`;
      return entry.isDirectory() ? filesBelow(folder, `${name}/`) : [name];
    })
  );
}

/** Values of attributes of the tags of a page. Text and values have no < or > of their own: they are escaped. */
function attributesOf(html, names) {
  const values = [];
  for (const [tag] of html.matchAll(/<[a-z][^>]*>/gi)) {
    for (const [, name, value] of tag.matchAll(/\s([\w-]+)="([^"]*)"/g)) {
      if (names.includes(name)) {
        values.push(decoded(value));
      }
    }
  }
  return values;
}

/**
 * Links of pages that lead nowhere, and those that lead out of the site's folder.
 * @param {string} folder of the built site
 * @returns {string[]} messages, each with the page and the link
 */
function findBrokenLinks(folder) {
  const files = new Set(filesBelow(folder));
  const pages = Array.from(files).filter((file) => file.endsWith('.html'));
  const texts = new Map(
    pages.map((page) => [page, fs.readFileSync(path.join(folder, page), 'utf8')])
  );
  const anchors = new Map(
    pages.map((page) => [page, new Set(attributesOf(texts.get(page), ['id', 'name']))])
  );
  const broken = [];
  for (const page of pages) {
    const links = new Set(attributesOf(texts.get(page), ['href', 'src']));
    for (const link of links) {
      if (/^([a-z][a-z+.-]*:|\/\/)/i.test(link)) {
        continue;
      }
      const [target, anchor] = link.split('#').map(decodeURIComponent);
      const joined = path.posix.join(path.posix.dirname(page), target);
      const file = target === '' ? page : joined.replace(/(^|\/)(\.?\/)?$/, '$1index.html');
      const report = (reason) =>
        broken.push(`${page} (${sourceOf(page)}): the link '${link}' leads nowhere: ${reason}.`);
      if (target.startsWith('/') || file.startsWith('../')) {
        report('it is out of the site');
      } else if (!files.has(file)) {
        report(`there is no ${file}`);
      } else if (anchor && anchors.has(file) && !anchors.get(file).has(anchor)) {
        report(`${file} has no heading '${anchor}'`);
      }
    }
  }
  return broken;
}

module.exports = { filesBelow, findBrokenLinks };
