#!/bin/bash
# SPDX-License-Identifier: Apache-2.0
# Renders the artwork that is authored as SVG into the PNG files that are embedded.
# Run it after changing an SVG; it needs rsvg-convert (package librsvg2-bin).
set -euo pipefail
cd "$(dirname "$0")"
for svg in *.svg; do
    rsvg-convert --width 256 --height 256 --output "${svg%.svg}.png" "$svg"
done
