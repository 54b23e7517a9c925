// Configuration of VitePress, which builds the site from the pages that scripts/site.js gathers in out/site-pages.
import fs from 'fs';
import { createRequire } from 'module';
import path from 'path';
import { fileURLToPath } from 'url';
import { kBase, makeRelative } from '../relative-base.mjs';

// Not imported: VitePress bundles the imports of this file into an ES module, where CommonJS has no `require`.
const require = createRequire(import.meta.url);
const { folders, kSiteTitle, pageOf, slugOf } = require('../../scripts/lib/site-pages');
const { sidebar, description } = JSON.parse(
  fs.readFileSync(path.join(folders.pages, 'site.json'), 'utf8')
);

/** Points links of documents to the pages made from the files that they name. */
function linkPages(md) {
  md.core.ruler.push('site-pages', ({ tokens }) => {
    for (const { children } of tokens) {
      for (const token of children || []) {
        const href = token.type === 'link_open' ? token.attrGet('href') : null;
        if (href !== null && !/^([a-z]+:|#)/.test(href)) {
          const [target, ...anchor] = href.split('#');
          token.attrSet('href', [pageOf(target), ...anchor].join('#'));
        }
      }
    }
  });
}

/** Accepts the only HTML tag in the generated reference: the anchor of a table row. */
function takeAnchors(md) {
  md.inline.ruler.before('autolink', 'site-anchor', (state, isSilent) => {
    const [tag] = /^<a id="[\w-]+"><\/a>/.exec(state.src.slice(state.pos)) || [''];
    if (tag !== '' && !isSilent) {
      state.push('html_inline', '', 0).content = tag;
    }
    state.pos += tag.length;
    return tag !== '';
  });
}

/** Escapes double braces in the text of a document, which Vue would evaluate as an expression. */
function keepBraces(md) {
  const { text } = md.renderer.rules;
  md.renderer.rules.text = (...args) => text(...args).replace(/\{\{/g, '&#123;&#123;');
}

/** Puts a live example where a fenced block of the language `live` names it. */
function placeLive(md) {
  const { fence } = md.renderer.rules;
  md.renderer.rules.fence = (tokens, at, ...more) =>
    tokens[at].info === 'live'
      ? `<LiveExample name="${tokens[at].content.trim()}" />\n`
      : fence(tokens, at, ...more);
}

export default {
  title: kSiteTitle,
  description,
  lang: 'en',
  base: kBase,
  srcDir: folders.pages,
  outDir: folders.site,
  cacheDir: path.join(folders.pages, '.cache'),
  // scripts/lib/site-links.js verifies links, with their anchors, in what was built.
  ignoreDeadLinks: true,
  metaChunk: true,
  head: [['link', { rel: 'icon', type: 'image/svg+xml', href: `${kBase}icon.svg` }]],
  markdown: {
    // Documents are plain Markdown, so that they read the same on a code host.
    html: false,
    attrs: { disable: true },
    anchor: { slugify: slugOf },
    config(md) {
      linkPages(md);
      takeAnchors(md);
      keepBraces(md);
      placeLive(md);
    },
  },
  themeConfig: {
    nav: [
      { text: 'First scene', link: '/docs/first-scene' },
      { text: 'Examples', link: '/docs/examples' },
      { text: 'Live', link: '/site/live/crowd' },
      { text: 'API reference', link: '/api/' },
      { text: 'Changes', link: '/CHANGELOG' },
    ],
    sidebar,
    outline: [2, 3],
    search: { provider: 'local' },
  },
  vite: {
    publicDir: fileURLToPath(new URL('../public', import.meta.url)),
    // In kB; the search index is the largest.
    build: { chunkSizeWarningLimit: 4096 },
  },
  buildEnd: ({ outDir }) => makeRelative(outDir),
};
