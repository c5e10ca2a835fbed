// Which kind of build the daemon runs on.
#pragma once

// Reads the system property that tells a debug build from a commercial one: 1 on a commercial build, 0 on a
// debug build. Not cached: a tester may switch the property while the daemon runs. Any thread.
int identify_product_version();
