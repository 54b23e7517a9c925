'use strict';
// What the environment tells of the build under test.

/** Path of the module. */
exports.modulePath = process.env.NQ_MODULE;

/** Path of the test addon, which reaches what script cannot. */
exports.addonPath = process.env.NQ_TEST_ADDON;

/** 'plain', or the sanitizer: 'address' or 'thread'. */
exports.buildKind = process.env.NQ_BUILD_KIND || 'plain';

/** True under a sanitizer, where everything takes longer and freed memory is kept for a while. */
exports.sanitized = exports.buildKind !== 'plain';
