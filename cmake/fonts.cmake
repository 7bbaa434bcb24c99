# The icon font comes from the npm registry at set-up and is compiled into the resources. Its hash
# is pinned, so that a tampered or truncated download stops the configuration instead of shipping.

set(MORVANE_ICON_FONT
    "${PROJECT_SOURCE_DIR}/resources/node_modules/@fortawesome/fontawesome-free/webfonts/fa-solid-900.ttf"
    CACHE FILEPATH "Font Awesome 5.15.4 solid, TrueType")
set(MORVANE_ICON_FONT_SHA256 af6397503fcefbd613976c21ad5c1e37298c18bbe07d096db03ccd3af6e05ba8)

if(NOT EXISTS "${MORVANE_ICON_FONT}")
  message(FATAL_ERROR "The icon font is missing: run scripts/deps.sh once, then configure again.")
endif()
file(SHA256 "${MORVANE_ICON_FONT}" _font_hash)
if(NOT _font_hash STREQUAL MORVANE_ICON_FONT_SHA256)
  message(FATAL_ERROR "The icon font is not the expected file: remove resources/node_modules and "
                      "run scripts/deps.sh again.")
endif()
configure_file("${PROJECT_SOURCE_DIR}/resources/fonts.qrc.in" "${PROJECT_BINARY_DIR}/fonts.qrc" @ONLY)
