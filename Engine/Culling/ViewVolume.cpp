// Planes of perspective and orthographic cameras.
#include "Engine/Culling/ViewVolume.h"

namespace nq::engine {

namespace {

// The camera's axes, and the centres of its near and far plane.
struct CameraFrame {
  Vector3 f;  // backward, from the target to the eye
  Vector3 r;  // right
  Vector3 u;  // up; not normalised again
  Vector3 nearCentre;
  Vector3 farCentre;
};

CameraFrame BuildFrame(const CameraPose& pose, float near, float far) {
  CameraFrame frame;
  frame.f = Normalize(Subtract(pose.eye, pose.target));
  frame.r = Normalize(Cross(pose.up, frame.f));
  frame.u = Cross(frame.f, frame.r);
  frame.nearCentre = Subtract(pose.eye, Scale(frame.f, near));
  frame.farCentre = Subtract(pose.eye, Scale(frame.f, far));
  return frame;
}

CullPlane PlaneThrough(const Vector3& normal, const Vector3& point) {
  return CullPlane{normal, point, -Dot(normal, point)};
}

ViewVolume VolumeWithDepthPlanes(const CameraFrame& frame, const Vector3& eye) {
  ViewVolume volume;
  volume.planes[0] = PlaneThrough(Negate(frame.f), frame.nearCentre);
  volume.planes[1] = PlaneThrough(frame.f, frame.farCentre);
  volume.backward = frame.f;
  volume.eye = eye;
  return volume;
}

}  // namespace

ViewVolume PerspectiveVolume(const CameraPose& pose, const PerspectiveLens& lens) {
  const CameraFrame frame = BuildFrame(pose, lens.near, lens.far);
  ViewVolume volume = VolumeWithDepthPlanes(frame, pose.eye);
  const float h = tanF(lens.fov * 0.5f) * lens.near;
  const float w = h * lens.aspect;

  // Each side plane goes through the eye and an edge of the near rectangle.
  const Vector3 top = Add(frame.nearCentre, Scale(frame.u, h));
  const Vector3 bottom = Subtract(frame.nearCentre, Scale(frame.u, h));
  const Vector3 left = Subtract(frame.nearCentre, Scale(frame.r, w));
  const Vector3 right = Add(frame.nearCentre, Scale(frame.r, w));
  const auto fromEye = [&pose](const Vector3& point) {
    return Normalize(Subtract(point, pose.eye));
  };
  volume.planes[2] = PlaneThrough(Cross(fromEye(top), frame.r), top);
  volume.planes[3] = PlaneThrough(Cross(frame.r, fromEye(bottom)), bottom);
  volume.planes[4] = PlaneThrough(Cross(fromEye(left), frame.u), left);
  volume.planes[5] = PlaneThrough(Cross(frame.u, fromEye(right)), right);
  return volume;
}

ViewVolume OrthographicVolume(const CameraPose& pose, const OrthographicLens& lens) {
  const CameraFrame frame = BuildFrame(pose, lens.near, lens.far);
  ViewVolume volume = VolumeWithDepthPlanes(frame, pose.eye);
  const auto up = [&frame](float offset) { return Add(frame.nearCentre, Scale(frame.u, offset)); };
  const auto along = [&frame](float offset) {
    return Add(frame.nearCentre, Scale(frame.r, offset));
  };
  volume.planes[2] = PlaneThrough(Negate(frame.u), up(lens.top));
  volume.planes[3] = PlaneThrough(frame.u, up(lens.bottom));
  volume.planes[4] = PlaneThrough(frame.r, along(lens.left));
  volume.planes[5] = PlaneThrough(Negate(frame.r), along(lens.right));
  return volume;
}

}  // namespace nq::engine
