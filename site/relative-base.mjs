// Makes a built site work from any folder of any server. VitePress needs that folder (its `base`) at build time, so the
// site is built with a placeholder, which is replaced afterwards: in pages by a relative path, in scripts by a global
// variable that each page sets.
import fs from 'fs';
import path from 'path';
import { parseAst } from 'vite';

/** Placeholder of the site's folder. */
export const kBase = '/NQ_SITE_BASE/';

/** The global variable of a page that holds the site's folder. */
const kVariable = 'nqSiteBase';

/** A page with links that are relative to it. */
function relativePage(html, toRoot) {
  const address = `new URL("${toRoot}",location.href).pathname`;
  const own = `<script>var ${kVariable}=decodeURI(${address})</script>`;
  // The menus and the icon of the first page remain when the reader navigates to a page in another folder, so their
  // links must be absolute by then.
  const fix =
    '<script>for(const a of document.querySelectorAll("a[href],link[rel=icon]"))a.href=a.href</script>';
  return html
    .split(kBase)
    .join(toRoot)
    .split(kBase.replace(/\//g, '_')) // in the name of a class
    .join('_')
    .replace('<head>', () => `<head>${own}`)
    .replace('</body>', () => `${fix}</body>`);
}

/** Calls a function for each node of a syntax tree. */
function visit(node, action) {
  if (Array.isArray(node)) {
    node.forEach((one) => visit(one, action));
  } else if (node !== null && typeof node === 'object') {
    if (typeof node.type === 'string') {
      action(node);
    }
    Object.values(node).forEach((one) => visit(one, action));
  }
}

/** A script whose strings contain the variable's value instead of the placeholder. */
function relativeScript(code, file) {
  const pieces = [];
  visit(parseAst(code), ({ type, start, end }) => {
    const raw = code.slice(start, end);
    if (type === 'Literal' && /^["']/.test(raw) && raw.includes(kBase)) {
      pieces.push({
        start,
        end,
        text: `(${raw.split(kBase).join(`${raw[0]}+${kVariable}+${raw[0]}`)})`,
      });
    } else if (type === 'TemplateElement' && raw.includes(kBase)) {
      pieces.push({ start, end, text: raw.split(kBase).join(`\${${kVariable}}`) });
    }
  });
  let [result, at] = ['', 0];
  for (const { start, end, text } of pieces.sort((a, b) => a.start - b.start)) {
    result += code.slice(at, start) + text;
    at = end;
  }
  result += code.slice(at);
  if (result.includes(kBase)) {
    throw new Error(`${file} has ${kBase} outside of strings: relative-base.mjs can't replace it.`);
  }
  return result;
}

/**
 * Rewrites all files of a built site.
 * @param {string} folder
 */
export function makeRelative(folder) {
  // Servers show it at any depth, where its relative paths would be wrong.
  fs.rmSync(path.join(folder, '404.html'), { force: true });
  for (const entry of fs.readdirSync(folder, { recursive: true })) {
    const file = path.join(folder, entry);
    const text = /\.(html|js|css|json)$/.test(entry) ? fs.readFileSync(file, 'utf8') : '';
    const toRoot = '../'.repeat(entry.split(path.sep).length - 1) || './';
    if (entry.endsWith('.html')) {
      fs.writeFileSync(file, relativePage(text, toRoot));
    } else if (entry.endsWith('.js') && text.includes(kBase)) {
      fs.writeFileSync(file, relativeScript(text, entry));
    } else if (text.includes(kBase)) {
      fs.writeFileSync(file, text.split(kBase).join(toRoot));
    }
  }
}
