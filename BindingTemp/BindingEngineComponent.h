// JavaScript class "EngineComponent": a unit of per-frame work over entities.
#ifndef NQ_BINDINGTEMP_BINDINGENGINECOMPONENT_H_
#define NQ_BINDINGTEMP_BINDINGENGINECOMPONENT_H_

#include <cstdint>

#include "BindingTemp/BindingEngineBase.h"

namespace nq::engine {

class BindingEngine;

// Kinds of component, as passed by JavaScript.
constexpr uint32_t kCullingComponentKind = 1;
constexpr uint32_t kAnimatorComponentKind = 2;
constexpr uint32_t kSkinningComponentKind = 3;

// The properties of one kind of component.
struct ComponentKind {
  uint32_t kind;
  int arguments;  // count that createComponent requires, including the kind

  // Converts the arguments after the kind and creates a component on the core of `self`. Converts
  // first: conversion may run JavaScript, and `self` is null for a receiver of the wrong class.
  NativeValueInfo (*create)(BindingEngine* self, v8::Isolate* isolate,
                            const vx::CallbackInfo& info);

  void (EngineCore::*release)(uint32_t handle);
};

// The entry of a kind, or null if there is no such kind.
const ComponentKind* FindComponentKind(uint32_t kind);

// Owns the component: releases it, by the operation of its kind, when the JavaScript object has
// been collected. Script thread only.
class BindingEngineComponent final : public BindingEngineBase {
 public:
  static constexpr bool kCountsObjects = true;

  // Stores in `info` the result of the creating operation of `kind`.
  BindingEngineComponent(EngineCore* core, uint32_t kind);

  // `new` in JavaScript, which is unreachable: fails the assertion "0 && \"not implement\"".
  explicit BindingEngineComponent(const vx::CallbackInfo& info);
  ~BindingEngineComponent() override;

  // Installs the class in the calling thread.
  static void Register();

  const char* ClassLabel() override { return "\"EngineComponent\""; }

  const uint32_t kind;
};

}  // namespace nq::engine

#endif  // NQ_BINDINGTEMP_BINDINGENGINECOMPONENT_H_
