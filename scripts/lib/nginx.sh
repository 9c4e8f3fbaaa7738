# shellcheck shell=bash
# nginx on loopback for the end-to-end scripts, serving WORK/www. Source it.
#   nginx_start WORK [SERVER_DIRECTIVES [LISTEN_OPTIONS [LOG_FORMAT]]]
#                 sets nginx_port and nginx_pid once nginx answers; LISTEN_OPTIONS
#                 "ssl" serves TLS (SERVER_DIRECTIVES then name the certificate)
#   nginx_stop    for the caller's EXIT trap
#   free_port     prints a loopback port nobody listens on
# Access lines go to WORK/logs/access.log as "METHOD URI STATUS" unless
# LOG_FORMAT says otherwise.

free_port() {
  python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

nginx_start() {
  local work=$1 server_directives=${2:-} listen_options=${3:-} log_format=${4:-'$request $status'}
  local scheme=http
  [[ "$listen_options" == *ssl* ]] && scheme=https
  mkdir -p "$work/logs"
  # nginx workers run unprivileged: they must be able to read the files.
  chmod 755 "$work"
  chmod -R a+rX "$work/www"
  nginx_port=$(free_port)
  cat > "$work/nginx.conf" <<CONF
worker_processes 1;
daemon off;
pid $work/nginx.pid;
error_log $work/logs/error.log;
events { worker_connections 64; }
http {
  log_format requests '$log_format';
  access_log $work/logs/access.log requests;
  client_body_temp_path $work/logs;
  proxy_temp_path $work/logs;
  fastcgi_temp_path $work/logs;
  uwsgi_temp_path $work/logs;
  scgi_temp_path $work/logs;
  types {
    application/vnd.apple.mpegurl m3u8;
    video/mp2t ts;
    video/mp4 mp4 m4s;
    application/octet-stream key;
  }
  server {
    listen 127.0.0.1:$nginx_port $listen_options;
    root $work/www;
    $server_directives
  }
}
CONF
  nginx -c "$work/nginx.conf" -p "$work" &
  nginx_pid=$!
  local _
  for _ in $(seq 1 100); do
    curl -sk -o /dev/null "$scheme://127.0.0.1:$nginx_port/" && return 0
    sleep 0.1
  done
  echo "nginx did not answer:"
  cat "$work/logs/error.log"
  return 1
}

nginx_stop() {
  if [[ -n "${nginx_pid:-}" ]]; then kill "$nginx_pid" 2>/dev/null || true; fi
}
