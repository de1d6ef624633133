// SPDX-License-Identifier: Apache-2.0
// Entry of the tray application.
#include "app/App.h"

int main(int argc, char **argv)
{
    App app(argc, argv);
    return app.run();
}
