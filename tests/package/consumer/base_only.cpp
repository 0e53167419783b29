// SPDX-License-Identifier: MIT
#include <kxbase/kxbase.h>

#include <cstdio>

int main() {
    const kxbase::UUID id = kxbase::UUID::Generate();
    if (kxbase::UUID(id.ToWString()) != id) return 1;
    std::puts("base ok");
    return 0;
}
