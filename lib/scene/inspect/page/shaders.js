// Shaders of the picture (GLSL ES 3.00). Colours and lighting are in display space (not linear).

const start = `#version 300 es
  precision highp float;
  precision highp int;
`;

/** What all programs share. */
const camera = `
  uniform mat4 uViewProjection;
  uniform mat4 uView;
  uniform vec3 uEye;
  uniform bool uIsOrthographic;
`;

/** Lighting of all lit shaders. */
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

/** Skins a vertex by four bones of its instance. */
const skinning = `
  uniform highp sampler2D uMatrices;
  uniform int uFirstMatrix;
  uniform int uBones;
  in vec3 aPosition;
  in vec3 aNormal;
  in vec4 aBones;
  in vec4 aWeights;

  mat4 matrixOf(float bone) {
    int texel = 4 * (uFirstMatrix + gl_InstanceID * uBones + int(bone));
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

export const body = {
  vertex: `${start}
    ${camera}
    ${skinning}
    uniform highp sampler2D uPalettes;
    in float aPart;
    in vec4 aLook; // tint, and palette
    out vec3 vColor;
    out vec3 vNormal;
    out vec3 vToEye;
    out float vDepth;

    void main() {
      mat4 matrix = skinMatrix();
      vec3 world = (matrix * vec4(aPosition, 1.0)).xyz;
      vec4 color = texelFetch(uPalettes, ivec2(int(aPart), int(aLook.w)), 0);
      vColor = color.rgb + color.a * aLook.rgb;
      vNormal = mat3(matrix) * aNormal;
      vDepth = -(uView * vec4(world, 1.0)).z;
      vToEye = uIsOrthographic ? vec3(uView[0][2], uView[1][2], uView[2][2]) : uEye - world;
      gl_Position = uViewProjection * vec4(world, 1.0);
    }
  `,
  fragment: `${start}
    ${lighting}
    in vec3 vColor;
    in vec3 vNormal;
    in vec3 vToEye;
    in float vDepth;
    out vec4 color;

    void main() {
      color = vec4(inFog(lit(vColor, vNormal, normalize(vToEye)), vDepth), 1.0);
    }
  `,
};

/** A body as its projection onto the floor, along the light. */
export const shadow = {
  vertex: `${start}
    ${camera}
    ${skinning}
    uniform vec3 uLight;
    uniform float uFloor;

    void main() {
      vec3 world = (skinMatrix() * vec4(aPosition, 1.0)).xyz;
      vec3 onFloor = world - uLight * max(0.0, world.y - uFloor) / uLight.y;
      gl_Position = uViewProjection * vec4(onFloor.x, uFloor, onFloor.z, 1.0);
    }
  `,
  fragment: `${start}
    out vec4 color;
    void main() {
      color = vec4(0.02, 0.03, 0.06, 0.5);
    }
  `,
};

/** A round floor with a grid that fades outwards. */
export const floor = {
  vertex: `${start}
    ${camera}
    uniform vec3 uMiddle;
    uniform float uRadius;
    uniform float uFloor;
    in vec3 aPosition;
    out vec3 vWorld;
    out float vDepth;

    void main() {
      vec2 at = uMiddle.xz + 4.0 * uRadius * aPosition.xy;
      vWorld = vec3(at.x, uFloor, at.y);
      vDepth = -(uView * vec4(vWorld, 1.0)).z;
      gl_Position = uViewProjection * vec4(vWorld, 1.0);
    }
  `,
  fragment: `${start}
    ${lighting}
    uniform vec3 uMiddle;
    uniform float uRadius;
    uniform float uCell;
    in vec3 vWorld;
    in float vDepth;
    out vec4 fragment;

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
      fragment = vec4(inFog(color, vDepth), 1.0);
    }
  `,
};

/** A light: a disc that faces the eye, brightest in its middle. */
export const glow = {
  vertex: `${start}
    ${camera}
    uniform float uSize;
    uniform float uHeight;
    in vec3 aPlace;
    in vec3 aColor;
    out vec3 vColor;

    void main() {
      vColor = aColor;
      gl_Position = uViewProjection * vec4(aPlace, 1.0);
      gl_PointSize = uSize * uHeight / gl_Position.w;
      // In front of the lamp, which is inside the glow.
      gl_Position.z -= 0.0005 * gl_Position.w;
    }
  `,
  fragment: `${start}
    in vec3 vColor;
    out vec4 color;
    void main() {
      float away = 2.0 * length(gl_PointCoord - 0.5);
      float light = pow(max(0.0, 1.0 - away), 2.6);
      color = vec4(min(vColor, 1.0) * light * 0.5, 1.0);
    }
  `,
};

/** The pool of light on the floor. */
export const pool = {
  vertex: `${start}
    ${camera}
    uniform float uSize;
    uniform float uFloor;
    in vec3 aPosition;
    in vec3 aPlace;
    in vec3 aColor;
    out vec3 vColor;
    out vec2 vAt;

    void main() {
      vColor = aColor;
      vAt = aPosition.xy;
      vec2 at = aPlace.xz + uSize * aPosition.xy;
      gl_Position = uViewProjection * vec4(at.x, uFloor, at.y, 1.0);
    }
  `,
  fragment: `${start}
    in vec3 vColor;
    in vec2 vAt;
    out vec4 color;
    void main() {
      float light = pow(max(0.0, 1.0 - length(vAt)), 2.0);
      color = vec4(vColor * light * 0.09, 1.0);
    }
  `,
};

/** Lines and points of one colour. */
export const lines = {
  vertex: `${start}
    ${camera}
    uniform float uSize;
    in vec3 aPosition;

    void main() {
      gl_Position = uViewProjection * vec4(aPosition, 1.0);
      gl_PointSize = uSize;
    }
  `,
  fragment: `${start}
    uniform vec4 uColor;
    out vec4 color;
    void main() {
      color = uColor;
    }
  `,
};

/** Great circles of spheres; those that the camera sees in another colour. */
export const spheres = {
  vertex: `${start}
    ${camera}
    in vec3 aPosition;
    in vec4 aSphere;
    in float aSeen;
    out float vSeen;

    void main() {
      vSeen = aSeen;
      gl_Position = uViewProjection * vec4(aSphere.xyz + aSphere.w * aPosition, 1.0);
    }
  `,
  fragment: `${start}
    uniform vec4 uColor;
    uniform vec4 uUnseen;
    in float vSeen;
    out vec4 color;
    void main() {
      color = vSeen > 0.5 ? uColor : uUnseen;
    }
  `,
};
