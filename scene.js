'use strict';
// So that packages can require 'nq_logic/scene'.
module.exports = require('./lib/scene');
