#!/usr/bin/env bash
# End to end over TLS and through failures: a CA and a server certificate for
# 127.0.0.1 are made here, nginx serves a file over TLS on loopback. dlplay
# plays it byte-exactly with --cacert, fails with the TLS exit status and the
# reason without it, plays it with -k and a warning. Then the failures a user
# meets (unknown host, refused connection, 401, 404) must each print their
# reason and exit with their own status, and -H / -A must reach the server.
set -euo pipefail
cd "$(dirname "$0")/../.."
root=$(pwd)
source scripts/lib/nginx.sh
dlplay="$root/build/asan/bin/dlplay"
[[ -x "$dlplay" ]] || { echo "tls: $dlplay is missing (the ASan build makes it)"; exit 1; }

work=$(mktemp -d)
cleanup() {
  nginx_stop
  rm -rf "$work"
}
trap cleanup EXIT

readonly exit_tls=35 exit_dns=6 exit_connect=7 exit_http=22

mkdir -p "$work/www" "$work/pki"
head -c 300007 /dev/urandom > "$work/www/file.bin"

pki="$work/pki"
openssl req -x509 -newkey rsa:2048 -nodes -days 2 -subj "/CN=dlplay test CA" \
  -keyout "$pki/ca.key" -out "$pki/ca.pem" 2>/dev/null
openssl req -newkey rsa:2048 -nodes -subj "/CN=127.0.0.1" -keyout "$pki/server.key" -out "$pki/server.csr" 2>/dev/null
printf 'subjectAltName=IP:127.0.0.1\nbasicConstraints=CA:FALSE\n' > "$pki/ext.cnf"
openssl x509 -req -in "$pki/server.csr" -CA "$pki/ca.pem" -CAkey "$pki/ca.key" -CAcreateserial -days 2 \
  -extfile "$pki/ext.cnf" -out "$pki/server.pem" 2>/dev/null
chmod -R a+rX "$pki"

nginx_start "$work" "ssl_certificate $pki/server.pem; ssl_certificate_key $pki/server.key;
    location /private/ { return 401; }" ssl '$request_uri ua=[$http_user_agent] token=[$http_x_dlplay_token]'
port=$nginx_port

base="https://127.0.0.1:$port"
failed=0
# run NAME EXPECTED_STATUS [dlplay arguments...]: stderr in $work/NAME.err, the media in $work/NAME.out.
run() {
  local name=$1 expected=$2 status=0
  shift 2
  "$dlplay" --cache "$work/cache-$name" --out "$work/$name.out" "$@" > /dev/null 2> "$work/$name.err" || status=$?
  if [[ $status -ne $expected ]]; then
    echo "tls: $name: exit status $status, expected $expected"; cat "$work/$name.err"; failed=1
  fi
}
expect_err() {
  grep -qF -- "$2" "$work/$1.err" || { echo "tls: $1: no \"$2\" on stderr:"; cat "$work/$1.err"; failed=1; }
}
expect_same() {
  cmp -s "$work/www/file.bin" "$work/$1.out" || { echo "tls: $1: the bytes differ from the origin's"; failed=1; }
}

run untrusted $exit_tls "$base/file.bin"
expect_err untrusted "file.bin: H4XX: certificate verify failed"

run trusted 0 --cacert "$pki/ca.pem" "$base/file.bin"
expect_same trusted

run insecure 0 -k "$base/file.bin"
expect_same insecure
expect_err insecure "warning: -k"

run headers 0 --cacert "$pki/ca.pem" -H "X-Dlplay-Token: t-123" -A "dlplay-test/1" "$base/file.bin?probe=1"
grep -F 'probe=1' "$work/logs/access.log" | grep -qF 'ua=[dlplay-test/1] token=[t-123]' ||
  { echo "tls: -H and -A did not reach the server:"; grep probe "$work/logs/access.log"; failed=1; }

run unauthorized $exit_http --cacert "$pki/ca.pem" "$base/private/file.bin"
expect_err unauthorized "file.bin: H5XX: HTTP 401"

run missing $exit_http --cacert "$pki/ca.pem" "$base/missing.bin"
expect_err missing "missing.bin: H404: HTTP 404"

run unknown_host $exit_dns "http://dlplay-test.invalid/file.bin"
expect_err unknown_host "file.bin: H4XX: could not resolve host 'dlplay-test.invalid'"

closed=$(free_port)
run refused $exit_connect "http://127.0.0.1:$closed/file.bin"
expect_err refused "file.bin: H4XX: connection refused"

cat "$work"/{untrusted,insecure,unauthorized,unknown_host,refused}.err | grep '^dlplay: ' || true
[[ $failed -eq 0 ]] || exit 1
echo "tls: trusted, untrusted, insecure, headers, 401, 404, unknown host and refused connection all as expected"
