#include "app/ombrik_main.h"

int main(int argc, char** argv) { return ombrik::OmbrikMain::main(argc, argv); }
