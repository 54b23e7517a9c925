'use strict';
// Declarations of typings, read by the compiler.
const path = require('path');
const ts = require('typescript');

const root = path.join(__dirname, '..', '..', '..');

const options = {
  target: ts.ScriptTarget.ES2019,
  lib: ['lib.es2019.d.ts'],
  module: ts.ModuleKind.CommonJS,
  moduleResolution: ts.ModuleResolutionKind.NodeJs,
  strict: true,
  noEmit: true,
  types: [],
  baseUrl: root,
  // As package.json maps them for users.
  paths: {
    nq_logic: ['types/index.d.ts'],
    'nq_logic/lib/*': ['types/*'],
    'nq_logic/scene': ['types/scene.d.ts'],
  },
};

/**
 * Compiles files of the tree, and texts without a file.
 * @param {string[]} files paths from the root
 * @param {Object<string, string>} [texts] by path from the root
 * @param {Object} [changes] of the options
 * @returns {ts.Program}
 */
function compile(files, texts = {}, changes = {}) {
  const settings = Object.assign({}, options, changes);
  const host = ts.createCompilerHost(settings, true);
  const names = Object.keys(texts).map((name) => path.join(root, name));
  const textOf = (file) => texts[path.relative(root, file)];
  const { fileExists, readFile } = host;
  host.fileExists = (file) => textOf(file) !== undefined || fileExists(file);
  host.readFile = (file) => (textOf(file) === undefined ? readFile(file) : textOf(file));
  host.getSourceFile = (file, target) => {
    const text = host.readFile(file);
    return text === undefined ? undefined : ts.createSourceFile(file, text, target, true);
  };
  host.getCurrentDirectory = () => root;
  const all = files.map((file) => path.join(root, file)).concat(names);
  return ts.createProgram(all, settings, host);
}

/**
 * Compiler errors of a program, a line each.
 * @param {ts.Program} program
 * @returns {string[]}
 */
function complaints(program) {
  return ts.getPreEmitDiagnostics(program).map(({ file, start, messageText }) => {
    const text = ts.flattenDiagnosticMessageText(messageText, ' ');
    if (file === undefined) {
      return text;
    }
    const { line } = file.getLineAndCharacterOfPosition(start);
    return `${path.relative(root, file.fileName)}:${line + 1}: ${text}`;
  });
}

/** The typings as the compiler reads them. */
class Typings {
  /** @param {string[]} modules names of files in types/ */
  constructor(modules) {
    this.program = compile(modules.map((name) => `types/${name}.d.ts`));
    this.checker = this.program.getTypeChecker();
  }

  /**
   * Exports of a module, with aliases resolved.
   * @param {string} name of a file in types/
   * @returns {Map<string, ts.Symbol>}
   */
  exportsOf(name) {
    const file = this.program.getSourceFile(path.join(root, 'types', `${name}.d.ts`));
    const symbols = this.checker.getExportsOfModule(this.checker.getSymbolAtLocation(file));
    return new Map(
      symbols.map((symbol) => {
        const isAlias = (symbol.flags & ts.SymbolFlags.Alias) !== 0;
        return [symbol.name, isAlias ? this.checker.getAliasedSymbol(symbol) : symbol];
      })
    );
  }

  /**
   * Exports that exist at run time.
   * @param {string} name of a file in types/
   * @returns {Map<string, ts.Symbol>}
   */
  valuesOf(name) {
    return new Map(
      Array.from(this.exportsOf(name)).filter(([, { flags }]) => flags & ts.SymbolFlags.Value)
    );
  }

  /**
   * Members of an interface, or of the instances of a class.
   * @param {ts.Symbol} symbol
   * @returns {Map<string, Object>} empty for any other symbol
   */
  membersOf(symbol) {
    const isOne = symbol.flags & (ts.SymbolFlags.Class | ts.SymbolFlags.Interface);
    const type = isOne ? this.checker.getDeclaredTypeOfSymbol(symbol) : null;
    return this._describe(type === null ? [] : type.getProperties());
  }

  /**
   * Whether a symbol has a comment.
   * @param {ts.Symbol} symbol
   * @returns {boolean}
   */
  isTold(symbol) {
    return symbol.getDocumentationComment(this.checker).length > 0;
  }

  /**
   * Static members of a class.
   * @param {ts.Symbol} symbol
   * @returns {Map<string, Object>}
   */
  staticsOf(symbol) {
    const type = this.checker.getTypeOfSymbolAtLocation(symbol, symbol.valueDeclaration);
    return this._describe(type.getProperties().filter(({ name }) => name !== 'prototype'));
  }

  /**
   * Call signatures of a function.
   * @param {ts.Symbol} symbol
   * @returns {Object[]}
   */
  callsOf(symbol) {
    const type = this.checker.getTypeOfSymbolAtLocation(symbol, symbol.valueDeclaration);
    return type.getCallSignatures().map((signature) => this._signature(signature));
  }

  /**
   * The declared type of a constant.
   * @param {ts.Symbol} symbol
   * @returns {ts.Type}
   */
  typeOf(symbol) {
    return this.checker.getTypeOfSymbolAtLocation(symbol, symbol.valueDeclaration);
  }

  _describe(symbols) {
    return new Map(
      symbols.map((symbol) => {
        const [declaration] = symbol.declarations;
        const type = this.checker.getTypeOfSymbolAtLocation(symbol, declaration);
        return [
          symbol.name,
          {
            isOptional: (symbol.flags & ts.SymbolFlags.Optional) !== 0,
            isReadonly:
              (ts.getCombinedModifierFlags(declaration) & ts.ModifierFlags.Readonly) !== 0,
            isMethod: type.getCallSignatures().length > 0,
            isTold: this.isTold(symbol),
            calls: type.getCallSignatures().map((signature) => this._signature(signature)),
            type,
          },
        ];
      })
    );
  }

  _signature(signature) {
    return {
      parameters: signature.parameters.map((parameter) => ({
        name: parameter.name,
        isOptional: parameter.valueDeclaration.questionToken !== undefined,
      })),
      result: signature.getReturnType(),
    };
  }

  /**
   * Kinds of values of a type: 'null', 'true', 'false', 'undefined', numbers, or 'object'.
   * @param {ts.Type} type
   * @returns {string[]} sorted
   */
  kindsOf(type) {
    const { TypeFlags } = ts;
    const parts = type.isUnion() ? type.types : [type];
    return Array.from(
      new Set(
        parts.map((part) => {
          if (part.flags & TypeFlags.Object) {
            return 'object';
          }
          const isPlain = TypeFlags.Null | TypeFlags.BooleanLiteral | TypeFlags.NumberLiteral;
          if ((part.flags & isPlain) === 0) {
            throw new Error(`no kind is known of ${this.checker.typeToString(part)}`);
          }
          return this.checker.typeToString(part);
        })
      )
    ).sort();
  }
}

module.exports = { Typings, compile, complaints };
