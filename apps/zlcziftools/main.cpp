#include "ziftools.h"

int main(int argc, char **argv) {
   return ZifToolsMain(argc, argv);
}
