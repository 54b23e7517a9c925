// The model's steps, written as plainly as possible.
#include "tests/native/Engine/Animation/ReferenceAnimation.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace nq::engine {

namespace {

const float kNone = std::numeric_limits<float>::quiet_NaN();
const float kInfinity = std::numeric_limits<float>::infinity();

uint32_t WordAt(const std::vector<uint8_t>& bytes, size_t offset) {
  return bytes[offset] | bytes[offset + 1] << 8 | bytes[offset + 2] << 16 |
         static_cast<uint32_t>(bytes[offset + 3]) << 24;
}

float FloatAt(const std::vector<uint8_t>& bytes, size_t offset) {
  const uint32_t word = WordAt(bytes, offset);
  float value;
  std::memcpy(&value, &word, 4);
  return value;
}

void AppendWord(std::vector<uint8_t>* bytes, uint32_t word) {
  for (int shift = 0; shift < 32; shift += 8) {
    bytes->push_back(static_cast<uint8_t>(word >> shift));
  }
}

void AppendFloat(std::vector<uint8_t>* bytes, float value) {
  uint32_t word;
  std::memcpy(&word, &value, 4);
  AppendWord(bytes, word);
}

void Store(uint8_t* record, uint32_t offset, float value) {
  if (!std::isnan(value)) {
    std::memcpy(record + offset, &value, 4);
  }
}

float Rounded(double value) {
  return static_cast<float>(value);
}

bool IsMissing(const float* q) {
  return std::isnan(q[0]) || std::isnan(q[1]) || std::isnan(q[2]) || std::isnan(q[3]);
}

float Dot(const float* a, const float* b) {
  float sum = a[0] * b[0];
  for (int i = 1; i < 4; ++i) {
    const float term = a[i] * b[i];
    sum = sum + term;
  }
  return sum;
}

void BlendTwo(float* a, const float* other, float t) {
  float b[4];
  std::memcpy(b, other, sizeof(b));
  float d = Dot(a, b);
  if (d < 0.0f) {
    for (float& number : b) {
      number = -number;
    }
    d = -d;
  }
  const float rest = 1.0f - t;
  if (1.0 - static_cast<double>(d) > 1e-6) {
    const float angle = Rounded(std::acos(static_cast<double>(d)));
    const float sine = Rounded(std::sin(static_cast<double>(angle)));
    const float restAngle = rest * angle;
    const float shareAngle = t * angle;
    const float restSine = Rounded(std::sin(static_cast<double>(restAngle)));
    const float shareSine = Rounded(std::sin(static_cast<double>(shareAngle)));
    for (int i = 0; i < 4; ++i) {
      const float fromA = a[i] * restSine;
      const float fromB = b[i] * shareSine;
      a[i] = fromA / sine + fromB / sine;
    }
  } else {
    for (int i = 0; i < 4; ++i) {
      const float fromA = a[i] * rest;
      const float fromB = b[i] * t;
      a[i] = fromA + fromB;
    }
  }
}

float Length3(const float* v) {
  const float xx = v[0] * v[0];
  const float yy = v[1] * v[1];
  const float zz = v[2] * v[2];
  const float xy = xx + yy;
  return Rounded(std::sqrt(static_cast<double>(xy + zz)));
}

void BlendMany(float* a, const float* other, float t) {
  float b[4];
  std::memcpy(b, other, sizeof(b));
  const float d = Dot(a, b);
  const bool isPositive = b[3] > 0.0f;
  if (!isPositive) {
    for (float& number : b) {
      number = -number;
    }
  }
  const float length = Length3(b);
  const float angle = Rounded(std::atan2(static_cast<double>(length), static_cast<double>(b[3])));
  const float twice = 2.0f * angle;
  const float share = twice * t;
  const float h = share * (d < 0.0f ? -0.5f : 0.5f);
  float n[3];
  for (int i = 0; i < 3; ++i) {
    n[i] = b[i] / length;
  }
  const float again = Length3(n);
  const float sine = Rounded(std::sin(static_cast<double>(h)));
  for (int i = 0; i < 3; ++i) {
    const float unit = n[i] / again;
    const float part = unit * sine;
    a[i] = a[i] + part;
  }
  a[3] = a[3] + Rounded(std::cos(static_cast<double>(h)));
}

}  // namespace

std::vector<uint8_t> ReferenceBytes(float rate, uint32_t frameCount,
                                    const std::vector<ReferenceCurve>& curves) {
  std::vector<uint8_t> bytes;
  const uint32_t curveCount = static_cast<uint32_t>(curves.size());
  AppendWord(&bytes, 16 + 12 * curveCount);
  AppendFloat(&bytes, rate);
  AppendWord(&bytes, frameCount);
  AppendWord(&bytes, curveCount);
  for (const ReferenceCurve& curve : curves) {
    AppendWord(&bytes, curve.target);
    AppendWord(&bytes, curve.type);
    AppendWord(&bytes, static_cast<uint32_t>(curve.keys.size()));
  }
  for (const ReferenceCurve& curve : curves) {
    for (const ReferenceKey& key : curve.keys) {
      AppendWord(&bytes, key.frame);
      AppendFloat(&bytes, key.value);
      AppendFloat(&bytes, key.inTangent);
      AppendFloat(&bytes, key.outTangent);
    }
  }
  return bytes;
}

uint32_t ReferenceTruncate(float value) {
  const double exact = static_cast<double>(value);
  if (exact >= 2147483648.0 && exact < 4294967296.0) {
    return 0x80000000u + static_cast<uint32_t>(exact - 2147483648.0);
  }
  if (exact > -2147483649.0 && exact < 2147483648.0) {
    return static_cast<uint32_t>(static_cast<int32_t>(exact));
  }
  return 0x80000000u;
}

bool ReferenceIsWhole(float value) {
  const double exact = static_cast<double>(value);
  return exact == (exact < 0 ? std::ceil(exact) : std::floor(exact));
}

float ReferenceSampleChannel(const std::vector<ReferenceKey>& keys, float time, uint32_t rate) {
  if (keys.empty()) {
    return kNone;
  }
  size_t i = keys.size() - 1;
  bool found = false;
  for (size_t k = 0; k < keys.size() && !found; ++k) {
    const float frame = static_cast<float>(static_cast<double>(keys[k].frame));
    if (frame >= time) {
      i = k;
      found = true;
    }
  }
  if (i == 0) {
    return keys[0].value;
  }
  if (ReferenceIsWhole(time) && keys[i].frame == ReferenceTruncate(time)) {
    return keys[i].value;
  }
  if (!found) {
    return keys.back().value;
  }
  const ReferenceKey& p = keys[i - 1];
  const ReferenceKey& n = keys[i];
  const uint32_t frames = n.frame - p.frame;
  if (frames == 0) {
    return p.value;
  }
  if (std::isinf(p.outTangent) || std::isinf(n.outTangent)) {
    return p.value;
  }
  const float span = static_cast<float>(static_cast<double>(frames));
  const float start = static_cast<float>(static_cast<double>(p.frame));
  const float into = time - start;
  const float s = into / span;
  const float dt = span / static_cast<float>(static_cast<double>(rate));
  const float s2 = s * s;
  const float s3 = s2 * s;
  const float twoS3 = 2.0f * s3;
  const float threeS2 = 3.0f * s2;
  const float twoS2 = 2.0f * s2;
  const float ofP = (twoS3 - threeS2) + 1.0f;
  const float ofN = threeS2 - twoS3;
  const float ofOut = (s3 - twoS2) + s;
  const float ofIn = s3 - s2;
  const float first = p.value * ofP;
  const float second = n.value * ofN;
  const float third = (p.outTangent * ofOut) * dt;
  const float fourth = (n.inTangent * ofIn) * dt;
  return ((first + second) + third) + fourth;
}

ReferenceSample ReferenceSampleTrack(const ReferenceTrack& track, float time, uint32_t rate) {
  ReferenceSample sample;
  sample.isQuaternion = track.isQuaternion;
  for (int c = 0; c < kReferenceChannels; ++c) {
    sample.channel[c] = ReferenceSampleChannel(track.channels[c], time, rate);
  }
  return sample;
}

float ReferenceLerp(float a, float b, float t) {
  const float ofB = b * t;
  const float rest = 1.0f - t;
  const float ofA = rest * a;
  if (std::isnan(a) && std::isnan(b)) {
    return kNone;
  }
  if (std::isnan(a)) {
    return ofB;
  }
  if (std::isnan(b)) {
    return ofA;
  }
  return ofB + ofA;
}

void ReferenceBlend(ReferenceSample* blended, const ReferenceSample& other, float t, bool many) {
  for (int c = 0; c < 6; ++c) {
    blended->channel[c] = ReferenceLerp(blended->channel[c], other.channel[c], t);
  }
  if (!blended->isQuaternion) {
    for (int c = 6; c < 9; ++c) {
      blended->channel[c] = ReferenceLerp(blended->channel[c], other.channel[c], t);
    }
    return;
  }
  float* a = blended->channel + 6;
  const float* b = other.channel + 6;
  if (IsMissing(a) && IsMissing(b)) {
    std::fill(a, a + 4, kNone);
  } else if (IsMissing(a)) {
    std::copy(b, b + 4, a);
  } else if (!IsMissing(b)) {
    if (many) {
      BlendMany(a, b, t);
    } else {
      BlendTwo(a, b, t);
    }
  }
}

ReferenceClip::ReferenceClip(const std::vector<uint8_t>& bytes) {
  if (bytes.size() <= 16) {
    return;
  }
  const uint32_t keyDataOffset = WordAt(bytes, 0);
  rate = ReferenceTruncate(FloatAt(bytes, 4));
  frameCount = WordAt(bytes, 8);
  const uint32_t curveCount = WordAt(bytes, 12);
  size_t key = keyDataOffset;
  for (uint32_t c = 0; c < curveCount; ++c) {
    const size_t curve = 16 + 12 * c;
    ReferenceTrack& track = tracks[WordAt(bytes, curve)];
    const uint32_t type = WordAt(bytes, curve + 4);
    const uint32_t keyCount = WordAt(bytes, curve + 8);
    for (uint32_t k = 0; k < keyCount; ++k, key += 16) {
      // 1 to 9 feed the channel one below, 11 to 13 the same three as 7 to 9.
      const uint32_t channel = type == 10 ? 9 : type > 10 ? type - 5 : type - 1;
      track.isQuaternion = track.isQuaternion || type == 10;
      track.channels[channel].push_back(ReferenceKey{WordAt(bytes, key), FloatAt(bytes, key + 4),
                                                     FloatAt(bytes, key + 8),
                                                     FloatAt(bytes, key + 12)});
    }
  }
}

ReferenceSamples ReferenceClip::SampleAll(float time) const {
  ReferenceSamples samples;
  for (const auto& [target, track] : tracks) {
    samples[target] = ReferenceSampleTrack(track, time, rate);
  }
  return samples;
}

ReferenceSamples ReferenceClip::SampleAtFrame(uint32_t frame) const {
  if (frameCount == 0) {
    return ReferenceSamples();
  }
  return SampleAll(static_cast<float>(static_cast<double>(frame % frameCount)));
}

ReferenceSamples ReferenceClip::SampleAtTime(float time) const {
  if (frameCount == 0) {
    return ReferenceSamples();
  }
  const float period = static_cast<float>(static_cast<double>(frameCount));
  return SampleAll(Rounded(std::fmod(static_cast<double>(time), static_cast<double>(period))));
}

std::vector<ReferenceWrite> ReferenceUpdate(const std::vector<ReferencePlay>& plays,
                                            const std::vector<uint32_t>& targets) {
  struct Active {
    ReferencePlay play;
    uint32_t base;
  };
  std::vector<Active> active;
  uint32_t base = 0;
  for (const ReferencePlay& play : plays) {
    if (0.0f < play.weight && play.weight <= 1.0f) {
      active.push_back(Active{play, base});
    }
    base += static_cast<uint32_t>(play.clip->tracks.size());
  }
  std::vector<ReferenceWrite> writes;
  if (active.size() == 1) {
    for (const auto& [target, sample] : active[0].play.clip->Play(active[0].play.time)) {
      const uint32_t place = active[0].base + target;
      if (place < targets.size()) {
        writes.push_back(ReferenceWrite{targets[place], sample});
      }
    }
    return writes;
  }
  struct Entry {
    ReferenceSample sample;
    float totalWeight;
  };
  std::map<uint32_t, Entry> entries;
  for (const Active& one : active) {
    for (const auto& [target, sample] : one.play.clip->Play(one.play.time)) {
      const uint32_t place = one.base + target;
      if (place >= targets.size()) {
        continue;
      }
      const auto found = entries.find(targets[place]);
      if (found == entries.end()) {
        entries[targets[place]] = Entry{sample, one.play.weight};
        continue;
      }
      Entry& entry = found->second;
      entry.totalWeight = entry.totalWeight + one.play.weight;
      const float t = one.play.weight / entry.totalWeight;
      ReferenceBlend(&entry.sample, sample, t, active.size() > 2);
    }
  }
  for (const auto& [handle, entry] : entries) {
    ReferenceSample sample = entry.sample;
    float* q = sample.channel + 6;
    const float length = Rounded(std::sqrt(static_cast<double>(Dot(q, q))));
    const float scale = 1.0f / length;
    for (int i = 0; i < 4; ++i) {
      q[i] = q[i] * scale;
    }
    writes.push_back(ReferenceWrite{handle, sample});
  }
  return writes;
}

void ReferenceApply(const ReferenceSample& sample, bool isThreeD, uint8_t* record) {
  const float* channel = sample.channel;
  if (isThreeD) {
    if (!std::isnan(channel[9])) {
      record[0] = sample.isQuaternion ? 1 : 0;
      Store(record, 16, channel[9]);
    }
    for (uint32_t i = 0; i < 3; ++i) {
      Store(record, 20 + 4 * i, channel[i]);
      Store(record, 32 + 4 * i, channel[3 + i]);
      Store(record, 4 + 4 * i, channel[6 + i]);
    }
  } else {
    Store(record, 4, channel[0]);
    Store(record, 8, channel[1]);
    Store(record, 12, channel[3]);
    Store(record, 16, channel[4]);
    Store(record, 0, channel[8]);
  }
}

float AnimationRandom::Odd(float low, float high) {
  if (!Chance(10)) {
    return Real(low, high);
  }
  return OneOf({kNone, kInfinity, -kInfinity, 0.0f, -0.0f, 3.0e38f, -3.0e38f, 1e-45f, 1e-20f});
}

std::vector<uint32_t> AnimationRandom::Frames() {
  std::vector<uint32_t> frames;
  const uint32_t count = Chance(8) ? 0 : Chance(10) ? 1 : 2 + Below(Chance(10) ? 40 : 9);
  const uint32_t kind = Below(100);
  uint32_t frame = Chance(70) ? 0 : Below(20);
  if (kind >= 85) {
    // Around the largest integer that floats represent exactly, and around the ends of the range.
    frame = OneOf({16777210u, 33554425u, 2147483640u, 4294967000u, 4294967290u});
  }
  const uint32_t step = 1 + Below(6);
  for (uint32_t k = 0; k < count; ++k) {
    frames.push_back(frame);
    if (kind < 35) {
      frame += step;
    } else if (kind < 55) {
      frame += Below(8);  // sometimes 0
    } else if (kind < 65) {
      frame += k % 5 == 3 ? 1000 : 1;  // unevenly spaced
    } else if (kind < 75) {
      frame = Below(30);  // unsorted
    } else {
      frame += 1 + Below(5);
    }
  }
  if (kind >= 85 && Chance(70)) {
    std::sort(frames.begin(), frames.end());
  }
  return frames;
}

std::vector<ReferenceKey> AnimationRandom::Keys(const std::vector<uint32_t>& frames) {
  const bool isOdd = Chance(15);
  const uint32_t steps = Chance(50) ? 0 : 20;
  std::vector<ReferenceKey> keys;
  for (const uint32_t frame : frames) {
    ReferenceKey key{frame, Real(-10, 10), Real(-5, 5), Real(-5, 5)};
    if (isOdd) {
      key.value = Odd(-10, 10);
      key.inTangent = Odd(-5, 5);
      key.outTangent = Odd(-5, 5);
    }
    if (Chance(steps)) {
      key.outTangent = Chance(80) ? kInfinity : -kInfinity;
    }
    if (Chance(steps / 4)) {
      key.inTangent = kInfinity;
    }
    keys.push_back(key);
  }
  return keys;
}

std::vector<ReferenceCurve> AnimationRandom::Curves(uint32_t* targetCount, bool ordinary) {
  const auto frames = [this, ordinary] {
    if (!ordinary) {
      return Frames();
    }
    std::vector<uint32_t> even;
    const uint32_t step = 1 + Below(4);
    for (uint32_t k = 0, count = 2 + Below(8); k < count; ++k) {
      even.push_back(k * step);
    }
    return even;
  };
  *targetCount = Chance(5) ? 0 : 1 + Below(6);
  std::vector<uint32_t> indices;
  for (uint32_t i = 0; i < *targetCount; ++i) {
    indices.push_back(i);
  }
  if (!ordinary && Chance(10)) {
    indices.push_back(OneOf({*targetCount + 1, 1000u, 0x80000000u, 0xFFFFFFFFu}));
  }
  const std::vector<uint32_t> shared[] = {frames(), frames()};
  const uint32_t own = OneOf({0u, 0u, 10u, 50u, 100u});    // percent of channels
  const uint32_t absent = OneOf({0u, 0u, 15u, 50u, 90u});  // percent of channels
  std::vector<ReferenceCurve> curves;
  for (const uint32_t target : indices) {
    const bool isQuaternion = Chance(60);
    const bool isWhole = Chance(30);  // all channels on one timeline
    for (uint32_t channel = 0; channel < 10; ++channel) {
      if ((channel == 9 && !isQuaternion && !Chance(3)) || (!isWhole && Chance(absent))) {
        continue;
      }
      uint32_t type = channel + 1;
      if (channel >= 6 && channel < 9 && isQuaternion) {
        type = channel + 5;
      }
      const bool ofOne = isWhole || !Chance(own);
      const std::vector<uint32_t> at = ofOne ? shared[isWhole || Chance(80) ? 0 : 1] : frames();
      curves.push_back(ReferenceCurve{target, type, Keys(at)});
      if (ordinary) {
        for (ReferenceKey& key : curves.back().keys) {
          key.value = type >= 10               ? Real(-1, 1)
                      : type >= 4 && type <= 6 ? Real(0.5f, 2)
                                               : Real(-3, 3);
          key.inTangent = Real(-2, 2);
          key.outTangent = Chance(5) ? kInfinity : Real(-2, 2);
        }
      } else if (Chance(4)) {
        // A second curve on the channel; for rotations of the other representation.
        const uint32_t second = type >= 11 ? type - 4 : type >= 7 && type <= 9 ? type + 4 : type;
        curves.push_back(ReferenceCurve{target, second, Keys(Frames())});
      }
    }
  }
  if (Chance(30)) {
    std::shuffle(curves.begin(), curves.end(), generator);
  }
  return curves;
}

float AnimationRandom::Rate() {
  return Chance(60) ? OneOf({30.0f, 60.0f, 24.9f, 1.0f})
                    : OneOf({0.0f, -0.0f, 0.5f, kNone, kInfinity, -1.0f, -30.5f, 3.0e9f, 1.0e10f,
                             1.0e38f, 16777216.0f, 2147483648.0f, 4294967040.0f});
}

uint32_t AnimationRandom::FrameCount() {
  return Chance(70) ? 5 + Below(60)
                    : OneOf({0u, 1u, 2u, 1000u, 16777217u, 33554431u, 0x7FFFFFFFu, 0xFFFFFFFFu});
}

std::vector<uint8_t> AnimationRandom::Clip(bool ordinary) {
  uint32_t targetCount;
  const std::vector<ReferenceCurve> curves = Curves(&targetCount, ordinary);
  const float rate = ordinary ? 30.0f : Rate();
  return ReferenceBytes(rate, ordinary ? 10 + Below(30) : FrameCount(), curves);
}

float AnimationRandom::Time(const ReferenceClip& clip) {
  const uint32_t kind = Below(100);
  if (kind < 30) {
    return Real(0, 40);
  }
  if (kind < 45) {
    return static_cast<float>(Below(70));
  }
  if (kind < 75 && !clip.tracks.empty()) {
    const auto track =
        std::next(clip.tracks.begin(), Below(static_cast<uint32_t>(clip.tracks.size())));
    const std::vector<ReferenceKey>& keys = track->second.channels[Below(10)];
    if (!keys.empty()) {
      const float frame = static_cast<float>(keys[Below(static_cast<uint32_t>(keys.size()))].frame);
      return Chance(50) ? frame
                        : OneOf({frame - 0.5f, frame + 0.25f, frame + 1.0f, frame - 1.0f,
                                 std::nextafter(frame, 0.0f), std::nextafter(frame, kInfinity)});
    }
  }
  if (kind < 82) {
    return Real(-50, 0);
  }
  if (kind < 86) {
    return static_cast<float>(clip.frameCount) * OneOf({1.0f, 2.0f, 0.5f, 1.5f}) + Real(-2, 2);
  }
  return OneOf({kNone, kInfinity, -kInfinity, -0.0f, 0.0f, -1.0f, -0.5f, 16777216.0f, 16777218.0f,
                2147483648.0f, -2147483648.0f, 4294967040.0f, 4294967296.0f, 5.0e9f, 1.0e20f,
                -5.0e9f, 3.0e38f, 1e-45f, 8388607.5f});
}

}  // namespace nq::engine
