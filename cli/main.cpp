#include "cli/Application.h"

int main(int argc, char** argv) {
  return orvanta::cli::run({argv + (argc > 0 ? 1 : 0), argv + argc}, orvanta::cli::processStreams());
}
