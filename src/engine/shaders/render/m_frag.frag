#version 450
// The source sampled bilinearly, clamped to its edge.
layout(set = 0, binding = 0) uniform sampler2D source;
layout(location = 0) in vec2 vUV;
layout(location = 0) out vec4 color;

void main() { color = textureLod(source, vUV, 0.0); }
