// Shaders of the picture. Colours and lighting are in display space (not linear).

/** Lighting shared by all lit shaders. */
const lighting = `
  uniform vec3 uLight;
  uniform vec3 uSky;
  uniform float uFogNear;
  uniform float uFogFar;

  vec3 lit(vec3 color, vec3 normal, vec3 toEye) {
    // Triangles are two-sided: the normal faces the eye.
    vec3 n = normalize(normal);
    n = dot(n, toEye) < 0.0 ? -n : n;
    float sky = 0.5 + 0.5 * n.y;
    float edge = pow(1.0 - max(0.0, dot(n, toEye)), 3.0);
    float light = 0.26 + 0.22 * sky + 0.62 * max(0.0, dot(n, uLight));
    return color * light + edge * vec3(0.10, 0.13, 0.20);
  }

  vec3 inFog(vec3 color, float depth) {
    return mix(color, uSky, 0.85 * smoothstep(uFogNear, uFogFar, depth));
  }
`;

const fragment = `
  ${lighting}
  varying vec3 vColor;
  varying vec3 vNormal;
  varying vec3 vToEye;
  varying float vDepth;

  void main() {
    gl_FragColor = vec4(inFog(lit(vColor, vNormal, normalize(vToEye)), vDepth), 1.0);
  }
`;

/** Skins a vertex by four bones of its instance's character. */
const skinning = `
  uniform highp sampler2D uMatrices;
  uniform int uBones;
  attribute vec4 aBones;
  attribute vec4 aWeights;

  mat4 matrixOf(float bone) {
    int texel = 4 * (gl_InstanceID * uBones + int(bone));
    int width = textureSize(uMatrices, 0).x;
    ivec2 at = ivec2(texel % width, texel / width);
    return mat4(
      texelFetch(uMatrices, at, 0),
      texelFetch(uMatrices, at + ivec2(1, 0), 0),
      texelFetch(uMatrices, at + ivec2(2, 0), 0),
      texelFetch(uMatrices, at + ivec2(3, 0), 0)
    );
  }

  mat4 skinMatrix() {
    mat4 sum = aWeights.x * matrixOf(aBones.x);
    if (aWeights.y > 0.0) { sum += aWeights.y * matrixOf(aBones.y); }
    if (aWeights.z > 0.0) { sum += aWeights.z * matrixOf(aBones.z); }
    if (aWeights.w > 0.0) { sum += aWeights.w * matrixOf(aBones.w); }
    return sum;
  }
`;

/** Projects from world to clip space, with the varyings of the lighting. */
const projection = `
  varying vec3 vColor;
  varying vec3 vNormal;
  varying vec3 vToEye;
  varying float vDepth;

  void project(vec3 world, vec3 normal) {
    vec4 inView = viewMatrix * vec4(world, 1.0);
    vNormal = normal;
    vDepth = -inView.z;
    vToEye = isOrthographic ? vec3(viewMatrix[0][2], viewMatrix[1][2], viewMatrix[2][2])
                            : cameraPosition - world;
    gl_Position = projectionMatrix * inView;
  }
`;

export const body = {
  vertex: `
    ${skinning}
    ${projection}
    attribute float aPart;
    attribute vec3 aTint;
    attribute vec3 aSkin;
    attribute vec3 aHair;

    void main() {
      mat4 matrix = skinMatrix();
      vec3 world = (matrix * vec4(position, 1.0)).xyz;
      if (aPart < 0.5) { vColor = aTint; }
      else if (aPart < 1.5) { vColor = mix(0.45 * aTint, vec3(0.204, 0.212, 0.329), 0.5); }
      else if (aPart < 2.5) { vColor = aSkin; }
      else if (aPart < 3.5) { vColor = aHair; }
      else { vColor = vec3(0.88, 0.88, 0.91); }
      project(world, mat3(matrix) * normal);
    }
  `,
  fragment,
};

export const prop = {
  vertex: `
    ${projection}
    attribute float aPart;
    attribute float aPalette;
    uniform vec3 uColors[PARTS * PALETTES];

    void main() {
      vColor = uColors[int(aPalette) * PARTS + int(aPart)];
      project((instanceMatrix * vec4(position, 1.0)).xyz, mat3(instanceMatrix) * normal);
    }
  `,
  fragment,
};

/** Projects a position onto the floor, along the light. */
const casting = `
  uniform vec3 uLight;
  uniform float uFloor;

  vec4 castDown(vec3 world) {
    vec3 onFloor = world - uLight * max(0.0, world.y - uFloor) / uLight.y;
    return projectionMatrix * viewMatrix * vec4(onFloor.x, uFloor, onFloor.z, 1.0);
  }
`;

const shadowFragment = `
  void main() {
    gl_FragColor = vec4(0.02, 0.03, 0.06, 0.5);
  }
`;

export const bodyShadow = {
  vertex: `
    ${skinning}
    ${casting}
    void main() {
      gl_Position = castDown((skinMatrix() * vec4(position, 1.0)).xyz);
    }
  `,
  fragment: shadowFragment,
};

export const propShadow = {
  vertex: `
    ${casting}
    void main() {
      gl_Position = castDown((instanceMatrix * vec4(position, 1.0)).xyz);
    }
  `,
  fragment: shadowFragment,
};

/** A round floor with a grid that fades outwards. */
export const floor = {
  vertex: `
    varying vec3 vWorld;
    varying float vDepth;
    void main() {
      vec4 world = modelMatrix * vec4(position, 1.0);
      vec4 inView = viewMatrix * world;
      vWorld = world.xyz;
      vDepth = -inView.z;
      gl_Position = projectionMatrix * inView;
    }
  `,
  fragment: `
    ${lighting}
    uniform vec3 uMiddle;
    uniform float uRadius;
    uniform float uCell;
    varying vec3 vWorld;
    varying float vDepth;

    float gridAt(vec2 place, float wide) {
      vec2 at = place / uCell;
      vec2 slope = fwidth(at);
      vec2 away = abs(fract(at - 0.5) - 0.5);
      vec2 line = 1.0 - smoothstep(vec2(0.0), wide * slope, away);
      // Fades lines out where they are closer than pixels.
      line *= 1.0 - smoothstep(0.15, 0.5, slope);
      return max(line.x, line.y);
    }

    void main() {
      float away = distance(vWorld.xz, uMiddle.xz) / uRadius;
      vec3 color = mix(vec3(0.135, 0.16, 0.235), vec3(0.30, 0.345, 0.48), 0.5 * gridAt(vWorld.xz, 1.6));
      color = mix(color, uSky, smoothstep(0.55, 1.5, away));
      gl_FragColor = vec4(inFog(color, vDepth), 1.0);
    }
  `,
};

/** A light: a disc that faces the eye, brightest in its middle. */
export const glow = {
  vertex: `
    attribute vec3 aColor;
    uniform float uSize;
    uniform float uHeight;
    varying vec3 vColor;
    void main() {
      vColor = aColor;
      vec4 inView = viewMatrix * vec4(position, 1.0);
      gl_Position = projectionMatrix * inView;
      gl_PointSize = uSize * uHeight * projectionMatrix[1][1] / gl_Position.w;
      // In front of the lamp, which is inside the glow.
      gl_Position.z -= 0.0005 * gl_Position.w;
    }
  `,
  fragment: `
    varying vec3 vColor;
    void main() {
      float away = 2.0 * length(gl_PointCoord - 0.5);
      float light = pow(max(0.0, 1.0 - away), 2.6);
      gl_FragColor = vec4(min(vColor, 1.0) * light * 0.5, 1.0);
    }
  `,
};

/** The pool of light on the floor. */
export const pool = {
  vertex: `
    attribute vec3 aPlace;
    attribute vec3 aColor;
    uniform float uSize;
    uniform float uFloor;
    varying vec3 vColor;
    varying vec2 vAt;
    void main() {
      vColor = aColor;
      vAt = position.xy;
      vec3 world = vec3(aPlace.x + uSize * position.x, uFloor, aPlace.z + uSize * position.y);
      gl_Position = projectionMatrix * viewMatrix * vec4(world, 1.0);
    }
  `,
  fragment: `
    varying vec3 vColor;
    varying vec2 vAt;
    void main() {
      float light = pow(max(0.0, 1.0 - length(vAt)), 2.0);
      gl_FragColor = vec4(vColor * light * 0.09, 1.0);
    }
  `,
};
