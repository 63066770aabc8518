// SPDX-License-Identifier: Apache-2.0
#include "command.h"

int main(int argc, char** argv) {
  return hyl::v2::tool::RunTool(argc, argv);
}
