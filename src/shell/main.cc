#include "shell/entry.h"

int main(int argc, char** argv) { return kel::KelcmdMain(argc, argv); }
