// fx_blur: the engine has already blurred Front into aux; the kernel only hands it on, so the
// matte can still limit where the blur shows.
void fx_blur(FX_ARGS) {
  FX_BEGIN
  o = texelFetch(aux, ivec2(gid), 0);
  FX_END
}
