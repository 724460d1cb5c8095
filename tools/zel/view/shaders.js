// Programs of the graphics card. A node moves by factor times its displacement: the only thing that changes from frame to frame.

const kMove = `
attribute vec3 displacement;
attribute float share;
uniform float factor;
varying float vShare;
varying vec3 vPlace;
vec4 moved()
{
    vec4 place = modelViewMatrix * vec4(position + factor * displacement, 1.0);
    vPlace = place.xyz;
    vShare = share;
    return projectionMatrix * place;
}
`;

// A share below 0 is a place without value. Texels are sampled in their middles.
const kColour = `
uniform sampler2D map;
uniform vec3 plain;
varying float vShare;
varying vec3 vPlace;
vec3 colour()
{
#ifdef NO_MAP
    return plain;
#else
    return vShare < -0.01 ? plain : texture2D(map, vec2((clamp(vShare, 0.0, 1.0) * 255.0 + 0.5) / 256.0, 0.5)).rgb;
#endif
}
`;

// Facets by the derivatives of the place, which follow the motion by themselves. The normal of the body at rest
// smooths them, as long as it is near.
const kSurfaceVertex = kMove + `
attribute vec3 rest;
varying vec3 vRest;
void main()
{
    vRest = normalMatrix * rest;
    gl_Position = moved();
}
`;
const kSurfaceFragment = kColour + `
uniform float lit;
varying vec3 vRest;
void main()
{
    vec3 facet = normalize(cross(dFdx(vPlace), dFdy(vPlace)));
    facet *= facet.z < 0.0 ? -1.0 : 1.0;
    float size = length(vRest);
    vec3 smooth_ = size > 0.0 ? vRest / size : facet;
    smooth_ *= dot(smooth_, facet) < 0.0 ? -1.0 : 1.0;
    vec3 normal = normalize(mix(facet, smooth_, smoothstep(0.5, 0.8, dot(facet, smooth_))));
    float key = max(dot(normal, normalize(vec3(-0.45, 0.65, 0.75))), 0.0);
    float fill = max(dot(normal, normalize(vec3(0.7, -0.25, 0.6))), 0.0);
    float gloss = pow(max(dot(normal, normalize(vec3(-0.3, 0.42, 1.0))), 0.0), 40.0);
    vec3 shaded = colour() * (0.42 + 0.5 * key + 0.2 * fill) + 0.07 * gloss;
    gl_FragColor = vec4(mix(colour(), shaded, lit), 1.0);
}
`;
const kPlainVertex = kMove + `
uniform float pointSize;
void main()
{
    gl_Position = moved();
    gl_PointSize = pointSize;
}
`;
const kPlainFragment = kColour + `
uniform float opacity;
uniform float round;
void main()
{
    if (round > 0.5 && length(gl_PointCoord - vec2(0.5)) > 0.5)
        discard;
    gl_FragColor = vec4(colour(), opacity);
}
`;

export function surfaceMaterial(uniforms)
{
    return new THREE.ShaderMaterial({
        uniforms: uniforms,
        vertexShader: kSurfaceVertex,
        fragmentShader: kSurfaceFragment,
        side: THREE.DoubleSide,
        extensions: {derivatives: true},
        polygonOffset: true,
        polygonOffsetFactor: 1,
        polygonOffsetUnits: 1
    });
}

// Of lines and points, whose light would tell nothing.
export function plainMaterial(uniforms, transparent)
{
    return new THREE.ShaderMaterial(
        {uniforms: uniforms, vertexShader: kPlainVertex, fragmentShader: kPlainFragment, transparent: transparent});
}
