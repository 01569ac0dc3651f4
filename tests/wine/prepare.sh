#!/bin/sh
# Prepares a Wine prefix for running the end-to-end cases against the Windows build:
#   prepare.sh <build-windows dir> <out dir>
# Leaves in <out dir>:
#   prefix/     the Wine prefix the whole suite shares, with the test root authority trusted
#   pki/        the test root authority and the code-signing certificate it issued
#   signed/     kvxfwctl.dll and kvxhida.dll signed with that certificate
#   unsigned/   the same libraries as built
#   tampered/   the signed libraries with one byte changed in the middle
# and a persistent wineserver for the prefix (stop it with: WINEPREFIX=<out>/prefix wineserver -k).
# Running it again reuses what is there and re-signs from the current build.
set -eu

if [ $# -ne 2 ]; then
  echo "usage: $0 <build-windows dir> <out dir>" >&2
  exit 2
fi
build=$(cd "$1" && pwd)
mkdir -p "$2"
out=$(cd "$2" && pwd)

wine=/usr/lib/wine/wine64
wineserver=/usr/lib/wine/wineserver64
[ -x "$wineserver" ] || wineserver=$(command -v wineserver || echo /usr/lib/wine/wineserver)
trust_root="$build/tests/wine/trust_root.exe"
for file in "$wine" "$build/netwarden.exe" "$build/kvxfwctl.dll" "$build/kvxhida.dll" "$trust_root"; do
  if [ ! -e "$file" ]; then
    echo "prepare.sh: missing $file" >&2
    exit 1
  fi
done

export WINEPREFIX="$out/prefix"
export WINEDEBUG=-all
# No Mono or Gecko installer prompts while the prefix is created, and no window either.
export WINEDLLOVERRIDES="mscoree,mshtml="
unset DISPLAY WAYLAND_DISPLAY

# The prefix: created once. Its wineserver stays up for the whole suite so that each run starts
# in a fraction of a second; it must not hold the caller's output open, or the test runner would
# wait for it.
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  rm -rf "$WINEPREFIX"
  if ! "$wine" wineboot -i >"$out/wineboot.log" 2>&1 </dev/null; then
    cat "$out/wineboot.log" >&2
    exit 1
  fi
  # The server wineboot started goes away by itself a few seconds later.
  "$wineserver" -w </dev/null >/dev/null 2>&1 || true
fi
# It forks into the background; a server already running for the prefix makes it fail, which
# is fine.
"$wineserver" -p </dev/null >/dev/null 2>&1 || true

# The test authority and the code-signing certificate: made once per out dir.
pki="$out/pki"
if [ ! -f "$pki/leaf.crt" ]; then
  rm -rf "$pki"
  mkdir -p "$pki"
  openssl req -x509 -newkey rsa:2048 -nodes -sha256 -days 3650 \
    -subj "/CN=netwarden test root" \
    -addext "basicConstraints=critical,CA:TRUE" \
    -addext "keyUsage=critical,keyCertSign,cRLSign" \
    -keyout "$pki/root.key" -out "$pki/root.crt" 2>/dev/null
  openssl req -new -newkey rsa:2048 -nodes -sha256 -subj "/CN=netwarden test code signing" \
    -keyout "$pki/leaf.key" -out "$pki/leaf.csr" 2>/dev/null
  printf '%s\n' "basicConstraints=critical,CA:FALSE" "keyUsage=critical,digitalSignature" \
    "extendedKeyUsage=codeSigning" >"$pki/leaf.ext"
  openssl x509 -req -sha256 -days 3650 -in "$pki/leaf.csr" -CA "$pki/root.crt" \
    -CAkey "$pki/root.key" -CAcreateserial -extfile "$pki/leaf.ext" -out "$pki/leaf.crt" 2>/dev/null
  openssl x509 -in "$pki/root.crt" -outform DER -out "$pki/root.der"
fi

# Trusting the root is idempotent (the helper replaces an existing copy).
cp "$pki/root.der" "$WINEPREFIX/drive_c/nw-test-root.der"
# Its output goes to a file: Wine's helper processes inherit it and may outlive the run, and a
# test runner waiting on a pipe would wait for them too.
if ! "$wine" "$trust_root" 'C:\nw-test-root.der' </dev/null >"$out/trust_root.log" 2>&1; then
  cat "$out/trust_root.log" >&2
  echo "prepare.sh: could not trust the test root in $WINEPREFIX" >&2
  exit 1
fi

rm -rf "$out/signed" "$out/unsigned" "$out/tampered"
mkdir -p "$out/signed" "$out/unsigned" "$out/tampered"
for name in kvxfwctl.dll kvxhida.dll; do
  cp "$build/$name" "$out/unsigned/$name"
  osslsigncode sign -h sha256 -certs "$pki/leaf.crt" -key "$pki/leaf.key" -ac "$pki/root.crt" \
    -in "$build/$name" -out "$out/signed/$name" >/dev/null
  cp "$out/signed/$name" "$out/tampered/$name"
  # One byte in the middle of the file: inside what the signature's digest covers.
  python3 - "$out/tampered/$name" <<'PY'
import sys
with open(sys.argv[1], "r+b") as f:
    size = f.seek(0, 2)
    f.seek(size // 2)
    byte = f.read(1)
    f.seek(size // 2)
    f.write(bytes([byte[0] ^ 0xFF]))
PY
done
echo "prepared $out"
