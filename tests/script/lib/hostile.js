'use strict';
// Objects that throw an error of their own when a program asks what they are.

/** A proxy whose every operation throws. */
function revokedProxy(target) {
  const { proxy, revoke } = Proxy.revocable(target, {});
  revoke();
  return proxy;
}

/** An object whose class can't be asked for. */
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
