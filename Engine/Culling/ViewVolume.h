// The volume that a camera sees, as six planes.
#ifndef NQ_ENGINE_CULLING_VIEWVOLUME_H_
#define NQ_ENGINE_CULLING_VIEWVOLUME_H_

#include "Common/Def/Vector3.h"

namespace nq::engine {

// A point x is on the inner side where normal . x + d is positive; d = -(normal . point). Points
// inward. Not normalised where the camera's axes are not.
struct CullPlane {
  Vector3 normal;
  Vector3 point;
  float d;
};

constexpr int kViewPlaneCount = 6;

// Near, far, top, bottom, left, right, in this order, with the camera's backward axis, from target
// to eye, and its position: what depths are measured by.
struct ViewVolume {
  CullPlane planes[kViewPlaneCount];
  Vector3 backward;
  Vector3 eye;
};

// Where a camera is and what it looks at, in world space.
struct CameraPose {
  Vector3 eye;
  Vector3 target;
  Vector3 up;
};

// Vertical whole angle in radians, width over height, distances along the view.
struct PerspectiveLens {
  float fov;
  float aspect;
  float near;
  float far;
};

// Offsets from the camera's axis, `left` and `bottom` usually negative, and distances along the
// view.
struct OrthographicLens {
  float left;
  float right;
  float bottom;
  float top;
  float near;
  float far;
};

// There is no guard against an eye at its target, or numbers that are none: planes then hold
// infinities or not-a-numbers, and such a plane rejects nothing.
ViewVolume PerspectiveVolume(const CameraPose& pose, const PerspectiveLens& lens);
ViewVolume OrthographicVolume(const CameraPose& pose, const OrthographicLens& lens);

}  // namespace nq::engine

#endif  // NQ_ENGINE_CULLING_VIEWVOLUME_H_
