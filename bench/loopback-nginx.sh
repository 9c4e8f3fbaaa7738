# Sourced by the side-by-side benchmarks: serves a folder with nginx on a free
# loopback port.
#
#   source bench/loopback-nginx.sh
#   start_loopback_nginx WORK_DIR     serves WORK_DIR/www; sets nginx_url and nginx_pid
#   stop_loopback_nginx
# (as root: nginx's worker runs as root)

start_loopback_nginx() {
  local work=$1
  mkdir -p "$work/www" "$work/logs" "$work/tmp"
  local port
  port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
  cat >"$work/nginx.conf" <<CONF
daemon off;
user root;
worker_processes 1;
pid $work/nginx.pid;
error_log $work/logs/error.log;
events { worker_connections 512; }
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
  echo "nginx did not come up" >&2
  return 1
}

stop_loopback_nginx() {
  if [[ -n "${nginx_pid:-}" ]]; then kill "$nginx_pid" 2>/dev/null || true; fi
  nginx_pid=""
}
