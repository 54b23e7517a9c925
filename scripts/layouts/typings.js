'use strict';
// Generates the typings of lib/ from its JSDoc. The compiler emits declarations for each file of lib/; this merges
// those of the files that make up a module into one file, without private members:
//
// - members whose names begin with an underscore, and classes and types marked @private, are omitted. The members of
//   a private base class are moved to its subclasses.
// - a base class that the module does not export becomes an interface.
// - @type of a method names a type with several call signatures: overloads, which JSDoc can't express otherwise.
// - constructors marked @protected are: what only the library makes can be named, but not made.
// - @readonly and @extends of an object type make its properties readonly, and set its base interface.
//
// The typings of lib/layout.js come from scripts/layouts/render.js.
const fs = require('fs');
const path = require('path');
const { nodeModule } = require('../lib/sources');
const { root } = require('../lib/run');
const { wrap } = require('./source');

const ts = require(nodeModule('typescript'));

const kCommentWidth = 117;

/** Hand-written typings, which the main module also exports. */
const byHand = ['engine', 'handles'];

/** Tags that only the compiler reads. */
const silentTags = /^@(type|readonly|private|protected|extends|typedef|property)\b/;

const settings = {
  allowJs: true,
  declaration: true,
  emitDeclarationOnly: true,
  strict: true,
  target: ts.ScriptTarget.ES2019,
  lib: ['lib.es2019.d.ts'],
  module: ts.ModuleKind.CommonJS,
  moduleResolution: ts.ModuleResolutionKind.NodeJs,
  newLine: ts.NewLineKind.LineFeed,
  types: [],
};

const libFile = (name) => path.join(root, 'lib', `${name}.js`);

/** Index of the brace that closes the one at `from`. */
function closeBrace(text, from) {
  let depth = 0;
  for (let at = from; at < text.length; ++at) {
    depth += text[at] === '{' ? 1 : text[at] === '}' ? -1 : 0;
    if (depth === 0) {
      return at;
    }
  }
  throw new Error(`unbalanced brace: ${text}`);
}

/** A tag without its type, which typings have anyway; undefined if nothing else is left. */
function typingsTag(tag) {
  const [, name, rest] = /^@(\w+)\s*([^]*)$/.exec(tag);
  if (silentTags.test(tag)) {
    return undefined;
  }
  if (!['param', 'returns', 'template'].includes(name)) {
    return tag;
  }
  const text = rest[0] === '{' ? rest.slice(closeBrace(rest, 0) + 1).trim() : rest;
  if (name === 'returns') {
    return text === '' ? undefined : `@returns ${text}`;
  }
  const bracket = text[0] === '[' ? text.indexOf(' ', text.lastIndexOf(']')) : text.indexOf(' ');
  if (bracket < 0) {
    return undefined;
  }
  const [, parameter] = /^\[?(\w+)/.exec(text);
  const about = text.slice(bracket).trim();
  return `@${name === 'param' ? 'param' : 'typeParam'} ${parameter} ${about}`;
}

/** A comment for typings; '' if nothing is left. */
function typingsComment(comment) {
  const lines = comment
    .replace(/^\s*\/\*\*|\*\/\s*$/g, '')
    .split('\n')
    .map((line) => line.replace(/^\s*\* ?/, '').trimEnd());
  const first = lines.findIndex((line) => /^\s*@\w/.test(line));
  const about = lines.slice(0, first < 0 ? lines.length : first);
  while (about.length > 0 && about[0].trim() === '') {
    about.shift();
  }
  while (about.length > 0 && about[about.length - 1].trim() === '') {
    about.pop();
  }
  const tags = [];
  for (const line of first < 0 ? [] : lines.slice(first)) {
    if (/^\s*@\w/.test(line)) {
      tags.push(line.trim());
    } else if (line.trim() !== '') {
      tags[tags.length - 1] += ` ${line.trim()}`;
    }
  }
  const kept = tags.map(typingsTag).filter((tag) => tag !== undefined);
  const all = about.map((line, i) => (i === 0 ? line.trim() : line));
  if (kept.length > 0) {
    all.push(...(all.length > 0 ? [''] : []));
    kept.forEach((tag) => all.push(...wrap(tag, kCommentWidth, 2)));
  }
  if (all.length === 0) {
    return '';
  }
  return all.length === 1
    ? `/** ${all[0]} */\n`
    : `/**\n${all.map((line) => ` * ${line}`.trimEnd()).join('\n')}\n */\n`;
}

/** The same for a property of an object type; the compiler puts spaces into its links. */
function typingsProperty(comment) {
  const [, text] = /^\/\*\*([^]*)\*\/$/.exec(comment);
  const words = text
    .replace(/^\s*\*/gm, '')
    .replace(/ \}/g, '}')
    .split(/\s+/);
  return typingsComment(`/**\n${wrap(words.join(' ').trim(), kCommentWidth - 2).join('\n')}\n*/`);
}

/** Code without the compiler's `import("…").` before types. */
function plain(code) {
  return code.replace(/import\(["'][^"']+["']\)\./g, '');
}

/** Code without comments. */
function withoutComments(text) {
  return text.replace(/\/\*\*[^]*?\*\//g, '');
}

/** The comment before a node, as in the source. */
function commentOf(node, text) {
  const ranges = ts.getLeadingCommentRanges(text, node.pos) || [];
  const all = ranges.map(({ pos, end }) => text.slice(pos, end));
  const last = all[all.length - 1];
  return last !== undefined && last.startsWith('/**') ? last : '';
}

/** A type, without the undefined that an optional one implies. */
function typeText(node, isOptional) {
  const text = plain(node.getText()).replace(/\{\s*([^{};]*);\s*\}/g, '{ $1 }');
  return isOptional ? text.replace(/ \| undefined$/, '') : text;
}

function parametersText({ parameters }) {
  return parameters
    .map(({ name, questionToken, type }) => {
      const isOptional = questionToken !== undefined;
      return `${name.getText()}${isOptional ? '?' : ''}: ${typeText(type, isOptional)}`;
    })
    .join(', ');
}

function typeParametersText({ typeParameters }) {
  return typeParameters === undefined
    ? ''
    : `<${typeParameters.map((one) => plain(one.getText())).join(', ')}>`;
}

/** Type parameters, parameters and result of a callable. */
function signatureText(node) {
  const result = node.type === undefined ? '' : `: ${typeText(node.type)}`;
  const text = `${typeParametersText(node)}(${parametersText(node)})${result}`;
  // The compiler numbers type parameters of the same name, although each is local to its method.
  return text.replace(/\b([A-Z]\w*?)_\d+\b/g, '$1');
}

/** The exports and imports of a file of lib/, and the types that its comments define. */
class Script {
  constructor(name) {
    this.name = name;
    this.text = fs.readFileSync(libFile(name), 'utf8');
    const kind = ts.ScriptKind.JS;
    this.file = ts.createSourceFile(`${name}.js`, this.text, ts.ScriptTarget.ES2019, true, kind);
    /** Imports: name to { module, isWhole, comment }. */
    this.imported = new Map();
    /** Types defined by comments: name to { comment, tags }. */
    this.types = new Map();
    this.exported = [];
    this.spread = [];
    this.file.statements.forEach((statement) => this._read(statement));
  }

  /** Names of exports in source order, then those from other files. */
  inOrder() {
    const places = new Map();
    this.file.statements.forEach((statement, i) => {
      const { name } = ts.isVariableStatement(statement)
        ? statement.declarationList.declarations[0]
        : statement;
      if (name !== undefined && ts.isIdentifier(name) && !this.imported.has(name.text)) {
        places.set(name.text, i);
      }
    });
    const placeOf = (name) => (places.has(name) ? places.get(name) : Infinity);
    return this.exported.slice().sort((a, b) => (placeOf(a) < placeOf(b) ? -1 : 1));
  }

  _read(statement) {
    for (const comment of statement.jsDoc || []) {
      const tags = comment.tags || [];
      for (const { name } of tags.filter(ts.isJSDocTypedefTag)) {
        this.types.set(name.text, { comment: comment.getText(), tags });
      }
    }
    if (ts.isVariableStatement(statement)) {
      const [{ name, initializer }] = statement.declarationList.declarations;
      const module = requiredBy(this.name, initializer);
      if (module !== null) {
        const comment = commentOf(statement, this.text);
        const names = ts.isIdentifier(name) ? [name] : name.elements.map((one) => one.name);
        const isWhole = ts.isIdentifier(name);
        names.forEach(({ text }) => this.imported.set(text, { module, isWhole, comment }));
      }
    } else if (/^module\.exports = \{/.test(statement.getText())) {
      for (const property of statement.expression.right.properties) {
        if (ts.isSpreadAssignment(property)) {
          this.spread.push(requiredBy(this.name, property.expression));
        } else {
          this.exported.push(property.name.text);
        }
      }
    }
  }
}

/** The file of lib/ that a relative path in a file of lib/ names; null outside of lib/, and for lib/checked/. */
function nameOf(file, request) {
  const name = path.posix.join(path.posix.dirname(file), request);
  return /^\.\.|^checked\//.test(name) ? null : name;
}

/** The file of lib/ that an expression in a file of lib/ requires, or null. */
function requiredBy(file, expression) {
  const match =
    expression !== undefined && /^require\('(\.[\w./-]+)'\)$/.exec(expression.getText());
  return match ? nameOf(file, match[1]) : null;
}

/** The compiler's declarations for a file of lib/, by name. */
function declarationsOf(name, text) {
  const file = ts.createSourceFile(`${name}.d.ts`, text, ts.ScriptTarget.ES2019, true);
  const declared = new Map();
  for (const statement of file.statements) {
    const node = ts.isVariableStatement(statement)
      ? statement.declarationList.declarations[0]
      : statement;
    if (node.name !== undefined && !ts.isImportEqualsDeclaration(node)) {
      declared.set(node.name.text, { node, comment: commentOf(statement, text) });
    }
  }
  return declared;
}

/** Reads files for the compiler; skips lib/checked/, which typings don't need and which would take most of the time. */
function compilerHost() {
  const host = ts.createCompilerHost(settings, true);
  const { readFile } = host;
  const inside = libFile('checked/').slice(0, -'.js'.length);
  host.getSourceFile = (file, target) => {
    const text = path.resolve(file).startsWith(inside) ? 'module.exports = {};' : readFile(file);
    return text === undefined ? undefined : ts.createSourceFile(file, text, target, true);
  };
  return host;
}

/** The files of lib/: read, compiled when they are asked for. */
class Library {
  constructor(names) {
    this._program = ts.createProgram(names.map(libFile), settings, compilerHost());
    this._scripts = new Map();
    this._declared = new Map();
  }

  script(name) {
    if (!this._scripts.has(name)) {
      this._scripts.set(name, new Script(name));
    }
    return this._scripts.get(name);
  }

  /** Declaration of a name in a file, or undefined. */
  declaration(name, file) {
    if (!this._declared.has(file)) {
      let text = '';
      const source = this._program.getSourceFile(libFile(file));
      const write = (_, written) => {
        text = written;
      };
      const { diagnostics } = this._program.emit(source, write, undefined, true);
      if (diagnostics.length > 0) {
        throw new Error(ts.formatDiagnostics(diagnostics, ts.createCompilerHost({})));
      }
      this._declared.set(file, declarationsOf(file, text));
    }
    return this._declared.get(file).get(name);
  }
}

/** Files with a hyphen in their names, and those of lib/scene/, are parts of other modules. */
const isPart = (name) => name.includes('-') || name.includes('/');
const isPrivate = (comment) => /@private\b/.test(comment);

/** The typings of a module: a file of lib/ and those that are its parts. */
class Module {
  constructor(library, name) {
    this._library = library;
    this._script = library.script(name);
    /** Names that exist at run time. */
    this._values = new Set();
    this._chunks = [];
    this._done = new Set();
    this._reexported = [];
    /** Types of other modules that it uses: name to module. */
    this._foreign = new Map();
  }

  /** The file, unformatted. */
  render() {
    const { name, text } = this._script;
    this._export(name);
    this._addTypes(name);
    const body = this._chunks.join('\n');
    const [module] = /\/\*\*(?:(?!\*\/)[^])*@module(?:(?!\*\/)[^])*\*\//.exec(text) || [''];
    return [
      `// Generated by node scripts/layouts.js from the JSDoc of lib/${name}.js and its parts.`,
      module,
      ...this._importLines(withoutComments(body)),
      '',
      body,
      ...this._reexported,
      '',
    ].join('\n');
  }

  /** Adds all exports of a file. */
  _export(file) {
    const script = this._library.script(file);
    script.exported.forEach((name) => this._values.add(name));
    script.spread.filter(isPart).forEach((part) => {
      this._library.script(part).exported.forEach((name) => this._values.add(name));
    });
    script.inOrder().forEach((name) => this._exportName(name, file));
    script.spread.forEach((module) => {
      if (isPart(module)) {
        this._export(module);
      } else {
        this._reexported.push(`export * from './${module}';`);
      }
    });
    if (file === 'index') {
      byHand.forEach((module) => this._reexported.push(`export * from './${module}';`));
    }
  }

  _exportName(name, file) {
    const source = this._library.script(file).imported.get(name);
    if (source === undefined) {
      this._add(name, file);
    } else if (isPart(source.module)) {
      this._exportName(name, source.module);
    } else {
      const what = source.isWhole ? `* as ${name}` : `{ ${name} }`;
      const about = source.isWhole ? typingsComment(source.comment) : '';
      this._reexported.push(`${about}export ${what} from './${source.module}';`);
    }
  }

  /** Adds the public types of a file. */
  _addTypes(file) {
    for (const [name, { tags }] of this._library.script(file).types) {
      if (!tags.some(ts.isJSDocPrivateTag)) {
        this._add(name, file);
      }
    }
  }

  /** The declaration of a name: in the file, or in a part that it is imported from; otherwise undefined. */
  _find(name, file) {
    const script = this._library.script(file);
    const found = this._library.declaration(name, file);
    if (found === undefined || isAlias(found.node)) {
      const source = script.imported.get(name) || aliasOf(file, found);
      if (source && !isPart(source.module) && source.module !== this._script.name) {
        this._foreign.set(name, source.module);
      }
      const isInside = source && (isPart(source.module) || source.module === this._script.name);
      return isInside ? this._find(name, source.module) : undefined;
    }
    return { name, file, node: found.node, comment: found.comment };
  }

  /** Adds a declaration, then those of parts that it refers to. */
  _add(name, file) {
    const found = this._find(name, file);
    if (found === undefined || this._done.has(name)) {
      return;
    }
    this._done.add(name);
    const chunk = this._declare(found);
    this._chunks.push(chunk.text);
    for (const word of new Set(withoutComments(chunk.text).match(/\b[A-Z]\w+\b/g))) {
      chunk.files.forEach((one) => this._add(word, one));
    }
  }

  _declare(found) {
    const { name, file, node, comment } = found;
    if (ts.isClassDeclaration(node)) {
      return this._class(found);
    }
    const about = typingsComment(comment);
    let text = '';
    if (ts.isFunctionDeclaration(node)) {
      text = `${about}export declare function ${name}${signatureText(node)};\n`;
    } else if (ts.isVariableDeclaration(node)) {
      text = `${about}export declare const ${name}: ${typeText(node.type)};\n`;
    } else {
      text = this._type(found);
    }
    return { text, files: [file] };
  }

  _type({ name, file, node }) {
    const { comment, tags } = this._library.script(file).types.get(name);
    const about = typingsComment(comment);
    const head = `${name}${typeParametersText(node)}`;
    if (!ts.isTypeLiteralNode(node.type)) {
      return `${about}export type ${head} = ${typeText(node.type)};\n`;
    }
    const isReadonly = tags.some(ts.isJSDocReadonlyTag);
    const base = tags.find(ts.isJSDocAugmentsTag);
    const extended = base === undefined ? '' : ` extends ${base.class.getText()}`;
    const members = node.type.members.map((member) => {
      const isOptional = member.questionToken !== undefined;
      const kept = typingsProperty(commentOf(member, node.getSourceFile().text));
      const key = member.name.getText();
      return ts.isFunctionTypeNode(member.type) && !isReadonly
        ? `${kept}${key}(${parametersText(member.type)}): ${typeText(member.type.type)};`
        : `${kept}${isReadonly ? 'readonly ' : ''}${key}${isOptional ? '?' : ''}: ` +
            `${typeText(member.type, isOptional)};`;
    });
    return `${about}export interface ${head}${extended} {\n${members.join('\n')}\n}\n`;
  }

  /** Public members of a class, and its public base class. */
  _membersOf({ file, node }) {
    const { text } = node.getSourceFile();
    const members = new Map();
    const files = [file];
    let base = null;
    const clause = (node.heritageClauses || [])[0];
    if (clause !== undefined) {
      const [type] = clause.types;
      const found = this._find(type.expression.getText(), file);
      if (found !== undefined && isPrivate(found.comment)) {
        const inherited = this._membersOf(found);
        inherited.members.forEach((one, key) => members.set(key, one));
        files.push(...inherited.files);
        ({ base } = inherited);
      } else {
        base = { name: type.expression.getText(), text: plain(type.getText()), found };
      }
    }
    // Setters are those of properties with getters, which have the comment.
    const settable = new Set(
      node.members.filter(ts.isSetAccessorDeclaration).map((member) => member.name.getText())
    );
    for (const member of node.members) {
      const key = ts.isConstructorDeclaration(member) ? 'constructor' : member.name.getText();
      if (key[0] !== '_' && !ts.isSetAccessorDeclaration(member)) {
        members.set(key, this._member(member, key, text, file, settable.has(key)));
      }
    }
    return { members, base, files };
  }

  _member(member, key, text, file, isSettable) {
    const comment = commentOf(member, text);
    const about = typingsComment(comment);
    const flags = ts.getCombinedModifierFlags(member);
    const isProtected = (flags & ts.ModifierFlags.Protected) !== 0;
    const isStatic = (flags & ts.ModifierFlags.Static) !== 0;
    const head = `${isProtected ? 'protected ' : ''}${isStatic ? 'static ' : ''}${key}`;
    if (ts.isPropertyDeclaration(member) || ts.isGetAccessorDeclaration(member)) {
      const isWritten =
        isSettable || (ts.isPropertyDeclaration(member) && !/@readonly\b/.test(comment));
      const access = isWritten ? '' : 'readonly ';
      return { isProperty: true, text: `${about}${access}${head}: ${typeText(member.type)};\n` };
    }
    const [, type] = /@type \{(\w+)\}/.exec(comment) || [];
    const ways =
      type === undefined ? [member] : this._find(type, file).node.type.members.map((way) => way);
    const lines = ways.map((way) => `${about}${head}${signatureText(way)};\n`);
    return { isProperty: false, text: lines.join('\n') };
  }

  _class(found) {
    const { name, node } = found;
    const { members, base, files } = this._membersOf(found);
    const about = typingsComment(found.comment);
    const head = `${name}${typeParametersText(node)}`;
    const own = (keys) => keys.map((key) => members.get(key).text).join('\n');
    const keys = Array.from(members.keys());
    if (!this._values.has(name)) {
      const properties = keys.filter((key) => members.get(key).isProperty);
      return { text: `${about}export interface ${head} {\n${own(properties)}}\n`, files };
    }
    const first = keys.filter((key) => key === 'constructor');
    const body = own([...first, ...keys.filter((key) => key !== 'constructor')]);
    const isInterface = base !== null && base.found !== undefined && !this._values.has(base.name);
    const merged = isInterface ? `export interface ${head} extends ${base.text} {}\n\n` : '';
    const extended = base === null || isInterface ? '' : ` extends ${base.text}`;
    const files2 = isInterface ? [...files, base.found.file] : files;
    const text = `${merged}${about}export declare class ${head}${extended} {\n${body}}\n`;
    return { text, files: files2 };
  }

  /** Imports of the names in the code. */
  _importLines(code) {
    const names = new Set(code.match(/\b[A-Za-z]\w+\b/g));
    const lines = byHand.map((module) => [
      module,
      exportedTypes(module).filter((name) => names.has(name)),
    ]);
    for (const [name, { module, isWhole }] of this._script.imported) {
      if (!isPart(module) && !isWhole && new RegExp(`\\btypeof ${name}\\b`).test(code)) {
        lines.push([module, [name]]);
      }
    }
    for (const module of new Set(this._foreign.values())) {
      const types = Array.from(this._foreign.keys()).filter(
        (name) => this._foreign.get(name) === module && new RegExp(`\\b${name}\\b`).test(code)
      );
      lines.push([module, types]);
    }
    return lines
      .filter(([, used]) => used.length > 0)
      .map(([module, used]) => `import type { ${used.join(', ')} } from './${module}';`);
  }
}

/** True for a type that is an import of another one. */
function isAlias(node) {
  if (!ts.isTypeAliasDeclaration(node)) {
    return false;
  }
  const type = node.type;
  return ts.isImportTypeNode(type) && type.qualifier.getText() === node.name.text;
}

/** The file of lib/ of a type import in a file of lib/. */
function aliasOf(file, found) {
  const match = found && /^import\(["'](\.[\w./-]+)["']\)/.exec(found.node.type.getText());
  const module = match ? nameOf(file, match[1]) : null;
  return module === null ? undefined : { module };
}

/** Names that hand-written typings export. */
function exportedTypes(module) {
  const text = fs.readFileSync(path.join(root, 'types', `${module}.d.ts`), 'utf8');
  return Array.from(text.matchAll(/^export (?:interface|type) (\w+)/gm), ([, name]) => name);
}

/** Modules of lib/ with typings from JSDoc. */
function moduleNames() {
  return fs
    .readdirSync(path.join(root, 'lib'))
    .filter((file) => file.endsWith('.js'))
    .map((file) => file.slice(0, -3))
    .filter((name) => !isPart(name) && name !== 'layout');
}

/**
 * The typings of lib/, unformatted.
 * @returns {Array<{file: string, text: string}>}
 */
function renderTypings() {
  const names = moduleNames();
  const library = new Library(names);
  return names.map((name) => ({
    file: `types/${name}.d.ts`,
    text: new Module(library, name).render(),
  }));
}

module.exports = { renderTypings };
