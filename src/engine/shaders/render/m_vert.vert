#version 450
// Mesh vertices: position 0..1 across the target (row 0 on top), texture coordinate.
layout(location = 0) in vec2 pos;
layout(location = 1) in vec2 uv;
layout(location = 0) out vec2 vUV;

void main() {
  vUV = uv;
  // Vulkan's clip space has y going down, like the picture.
  gl_Position = vec4(pos.x * 2.0 - 1.0, pos.y * 2.0 - 1.0, 0.0, 1.0);
}
