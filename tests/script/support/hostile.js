'use strict';
// Objects that throw their own error when a program inspects their type.

/** A proxy whose every operation throws. */
function revokedProxy(target) {
  const { proxy, revoke } = Proxy.revocable(target, {});
  revoke();
  return proxy;
}

/** An object whose class can't be read. */
function withThrowingTag() {
  return {
    get [Symbol.toStringTag]() {
      throw new Error('from the tag');
    },
  };
}

/** One of each kind; messages call each of them "an object". */
function hostileObjects() {
  return [withThrowingTag(), revokedProxy({}), revokedProxy([])];
}

module.exports = { hostileObjects };
