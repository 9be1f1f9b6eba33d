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

# The uplink to a fleet, and for development images the command line and the simulator: PACKAGECONFIG:append = " tools"
PACKAGECONFIG ??= ""
PACKAGECONFIG[tools] = "-DTOLQUIL_TOOLS=ON,-DTOLQUIL_TOOLS=OFF,cli11 ncurses nlohmann-json"

UPLINK = "${@bb.utils.contains('PACKAGECONFIG', 'tools', '${PN}-uplink', '', d)}"
SYSTEMD_PACKAGES = "${PN} ${UPLINK}"
SYSTEMD_SERVICE:${PN} = "tolquil.service"
SYSTEMD_SERVICE:${PN}-uplink = "tolquil-uplink.service"
USERADD_PACKAGES = "${PN} ${UPLINK}"
USERADD_PARAM:${PN} = "--system --no-create-home --home-dir / --shell /usr/sbin/nologin --user-group tolquil"
USERADD_PARAM:${PN}-uplink = "--system --no-create-home --home-dir / --shell /usr/sbin/nologin --user-group tolquil-uplink"

# A configuration may hold a password.
do_install:append() {
    chown root:tolquil ${D}${sysconfdir}/morn/tolquil.conf
    chmod 640 ${D}${sysconfdir}/morn/tolquil.conf
    if [ -e ${D}${sysconfdir}/morn/tolquil-uplink.conf ]; then
        chown root:tolquil-uplink ${D}${sysconfdir}/morn/tolquil-uplink.conf
        chmod 640 ${D}${sysconfdir}/morn/tolquil-uplink.conf
    fi
}

CONFFILES:${PN} = "${sysconfdir}/morn/tolquil.conf"
CONFFILES:${PN}-uplink = "${sysconfdir}/morn/tolquil-uplink.conf"
PACKAGE_BEFORE_PN = "${PN}-uplink ${PN}-tools ${PN}-zsh-completion"
FILES:${PN}-uplink = "${sbindir}/tolquil-uplink ${sysconfdir}/morn/tolquil-uplink.conf \
    ${nonarch_libdir}/sysusers.d/tolquil-uplink.conf"
FILES:${PN}-tools = "${bindir}/quilctl ${bindir}/ecusim"
FILES:${PN}-zsh-completion = "${datadir}/zsh/site-functions"
FILES:${PN} += "${nonarch_libdir}/sysusers.d/tolquil.conf"
