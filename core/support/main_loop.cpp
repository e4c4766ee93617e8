#include "core/support/main_loop.h"

namespace holdenmere {

InertMainLoop& InertMainLoop::shared() {
    static InertMainLoop loop;
    return loop;
}

}  // namespace holdenmere
