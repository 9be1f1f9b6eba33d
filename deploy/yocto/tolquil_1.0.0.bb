# A sample recipe for Yocto 5.0 with systemd. Lines to adapt are marked "EDIT:".
SUMMARY = "Environment variables of a vehicle telematics unit"
SECTION = "net"
LICENSE = "CLOSED"

# EDIT: the repository, and the commit of the release
SRC_URI = "git://git.example.org/tolquil.git;protocol=https;branch=main"
SRCREV = "${AUTOREV}"
S = "${WORKDIR}/git"

DEPENDS = "protobuf protobuf-native mosquitto openssl zlib"

inherit bash-completion cmake pkgconfig systemd useradd

EXTRA_OECMAKE = "-DTOLQUIL_TESTS=OFF -DTOLQUIL_WARNINGS_AS_ERRORS=OFF"
# EDIT: the physical page of the boot loader's version, if it is another one:
# EXTRA_OECMAKE += "-DTOLQUIL_UBOOT_ADDRESS=0x900000"

# The command line and the simulator are for development images: PACKAGECONFIG:append = " tools"
PACKAGECONFIG ??= ""
PACKAGECONFIG[tools] = "-DTOLQUIL_TOOLS=ON,-DTOLQUIL_TOOLS=OFF,cli11 nlohmann-json"

SYSTEMD_SERVICE:${PN} = "tolquil.service"
USERADD_PACKAGES = "${PN}"
USERADD_PARAM:${PN} = "--system --no-create-home --home-dir / --shell /usr/sbin/nologin --user-group tolquil"

# The configuration may hold a password.
do_install:append() {
    chown root:tolquil ${D}${sysconfdir}/morn/tolquil.conf
    chmod 640 ${D}${sysconfdir}/morn/tolquil.conf
}

CONFFILES:${PN} = "${sysconfdir}/morn/tolquil.conf"
PACKAGE_BEFORE_PN = "${PN}-tools ${PN}-zsh-completion"
FILES:${PN}-tools = "${bindir}/quilctl ${bindir}/ecusim"
FILES:${PN}-zsh-completion = "${datadir}/zsh/site-functions"
FILES:${PN} += "${nonarch_libdir}/sysusers.d/tolquil.conf"
