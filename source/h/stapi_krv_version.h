/* The texts by which a build of the library tells which one it is. The two values come from the build. */
#ifndef STAPI_KRV_VERSION_H
#define STAPI_KRV_VERSION_H

#ifndef KRVSTATS_PRODUCT_VERSION
#define KRVSTATS_PRODUCT_VERSION "1.0.0.0"
#endif

#ifndef KRVSTATS_BUILD_LEVEL
#define KRVSTATS_BUILD_LEVEL "k100"
#endif

#define KRVSTATS_VERSION_BANNER "\nKorvane Version " KRVSTATS_PRODUCT_VERSION " Build Level " KRVSTATS_BUILD_LEVEL

#endif
