// tarnwick-key NAME: a new pair of keys in NAME.key and NAME.pub.
#include <iostream>

#include "seal/keys.h"

int main(int argc, char** argv) {
  const std::string name = argc == 2 ? argv[1] : "";
  if (name.empty() || name[0] == '-') {
    std::cerr << "Usage: tarnwick-key NAME\n"
                 "Makes a new pair of keys: NAME.key signs seals (tarnwick --sign=NAME.key),\n"
                 "NAME.pub checks them (tarnwick-receive --trust NAME.pub).\n";
    return 1;
  }
  std::string error;
  if (!make_key_files(name, error)) {
    std::cerr << "tarnwick-key: " << error << "\n";
    return 1;
  }
  std::cout << "Keep " << name << ".key secret; take " << name << ".pub to the receiver.\n";
  return 0;
}
