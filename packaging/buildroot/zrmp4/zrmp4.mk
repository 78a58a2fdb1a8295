################################################################################
#
# zrmp4
#
################################################################################

ZRMP4_VERSION = 2.0.1
# The checkout that this external tree is part of.
ZRMP4_SITE = $(BR2_EXTERNAL_ZRMP4_PATH)/../..
ZRMP4_SITE_METHOD = local
ZRMP4_LICENSE = MIT
ZRMP4_LICENSE_FILES = LICENSE
ZRMP4_INSTALL_STAGING = YES
ZRMP4_CONF_OPTS = -DZRMP4_BUILD_TESTS=OFF -DZRMP4_BUILD_BENCHMARKS=OFF

ifeq ($(BR2_PACKAGE_ZRMP4_TOOLS),y)
ZRMP4_CONF_OPTS += -DZRMP4_BUILD_TOOLS=ON
else
ZRMP4_CONF_OPTS += -DZRMP4_BUILD_TOOLS=OFF
endif

$(eval $(cmake-package))
