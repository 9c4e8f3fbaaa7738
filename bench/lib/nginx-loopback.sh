# Sourced by the benchmark drivers: starts nginx on a free loopback port
# serving a folder, and stops it on exit.
#
#   source bench/lib/nginx-loopback.sh
#   start_nginx "$work"            # serves $work/www; sets nginx_url, nginx_pid
#   ... "$nginx_url/file" ...
#   stop_nginx                     # (or leave it to the caller's EXIT trap)

start_nginx() {
  local work=$1
  mkdir -p "$work/logs" "$work/tmp"
  local port
  port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  cat >"$work/nginx.conf" <<CONF
daemon off;
user root;
worker_processes 1;
pid $work/nginx.pid;
error_log $work/logs/error.log;
events { worker_connections 64; }
http {
  access_log off;
  sendfile on;
  tcp_nopush on;
  default_type application/octet-stream;
  client_body_temp_path $work/tmp/body;
  proxy_temp_path $work/tmp/proxy;
  fastcgi_temp_path $work/tmp/fastcgi;
  uwsgi_temp_path $work/tmp/uwsgi;
  scgi_temp_path $work/tmp/scgi;
  server {
    listen 127.0.0.1:$port;
    root $work/www;
  }
}
CONF
  nginx -c "$work/nginx.conf" -p "$work" &
  nginx_pid=$!
  nginx_url=http://127.0.0.1:$port
  for _ in $(seq 50); do
    curl -s -o /dev/null "$nginx_url/" && return 0
    sleep 0.1
  done
  echo "nginx did not start" >&2
  return 1
}

stop_nginx() {
  if [[ -n "${nginx_pid:-}" ]]; then kill "$nginx_pid" 2>/dev/null || true; fi
  nginx_pid=""
}
