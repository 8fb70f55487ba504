#include "app/main.h"

int main() {
    return findwright::main_run(nullptr);
}
