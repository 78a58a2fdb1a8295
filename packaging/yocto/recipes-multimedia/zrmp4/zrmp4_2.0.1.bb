SUMMARY = "Crash-safe MP4 and QuickTime recording"
DESCRIPTION = "Records H.264, H.265, ProRes, AAC, MP3, G.711 and timed metadata. A recording that was cut off by a \
kill or a power loss is made playable again, in place."
SECTION = "multimedia"
LICENSE = "MIT"
LIC_FILES_CHKSUM = "file://LICENSE;md5=293c9d30045e56a393e61bac052cc5e5"

# The checkout that this layer is part of.
inherit externalsrc cmake bash-completion
EXTERNALSRC = "${@os.path.realpath(d.getVar('THISDIR') + '/../../../..')}"

EXTRA_OECMAKE = "-DZRMP4_BUILD_TESTS=OFF -DZRMP4_BUILD_BENCHMARKS=OFF"

PACKAGECONFIG ??= "tools"
PACKAGECONFIG[tools] = "-DZRMP4_BUILD_TOOLS=ON,-DZRMP4_BUILD_TOOLS=OFF"

PACKAGE_BEFORE_PN = "${PN}-tools"
FILES:${PN}-tools = "${bindir}/zrmp4"
