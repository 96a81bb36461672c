#include <norvo-pax-client/velaHalclient.h>
#include <velaHalclient.h>

int main() {
    return &velaHalclient::vela_init != nullptr ? 0 : 1;
}
