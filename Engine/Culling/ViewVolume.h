// The volume that a camera sees, as six planes.
#ifndef NQ_ENGINE_CULLING_VIEWVOLUME_H_
#define NQ_ENGINE_CULLING_VIEWVOLUME_H_

#include "Common/Def/Vector3.h"

namespace nq::engine {

// A half-space: a point x is inside if normal . x + d is positive; d = -(normal . point). The
// normal points inward. Not normalised if the camera's axes are not.
struct CullPlane {
  Vector3 normal;
  Vector3 point;
  float d;
};

constexpr int kViewPlaneCount = 6;

// Near, far, top, bottom, left, right, in this order, with the camera's backward axis, from target
// to eye, and its position: depths are measured along that axis from there.
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

// Vertical field of view in radians, aspect ratio (width over height), distances along the view.
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

// Unguarded: if the eye is at its target, or numbers are NaN, planes hold infinities or NaNs, and
// such a plane rejects nothing.
ViewVolume PerspectiveVolume(const CameraPose& pose, const PerspectiveLens& lens);
ViewVolume OrthographicVolume(const CameraPose& pose, const OrthographicLens& lens);

}  // namespace nq::engine

#endif  // NQ_ENGINE_CULLING_VIEWVOLUME_H_
