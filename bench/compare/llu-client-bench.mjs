// The npm registry's LibreLinkUp client (@diakem/libre-link-up-api-client) against glinta-sim, for
// comparing its idle cost and cycle CPU with Glinta's. Not part of the build; see bench/README.md.
//
//   node bench/compare/llu-client-bench.mjs idle    # signs in, prints "ready", then reads once a minute
//   node bench/compare/llu-client-bench.mjs cycle   # signs in, then CYCLES reads back to back
//
// Environment: LLU_CLIENT_DIR (where the package was installed with npm), LLU_BASE_URL (the simulated
// service's region base, e.g. https://127.0.0.1:PORT/eu), LLU_EMAIL, LLU_PASSWORD, INTERVAL_S (idle,
// default 60), CYCLES (cycle, default 200). For TLS, NODE_EXTRA_CA_CERTS names the simulator's cert.
import { createHash } from 'node:crypto';
import { createRequire } from 'node:module';
import { join } from 'node:path';

const env = (name, fallback) => {
  const value = process.env[name] ?? fallback;
  if (value === undefined) {
    console.error(`llu-client-bench: ${name} is not set`);
    process.exit(2);
  }
  return value;
};

const require = createRequire(join(env('LLU_CLIENT_DIR'), 'package.json'));
const axios = require('axios');
const baseURL = env('LLU_BASE_URL');

// The package hard-codes its server and predates the account-id header the service now wants. Both are
// supplied from outside, without touching its code: every axios instance it creates is pointed at the
// simulator and sends the hashed user id once the login has told it.
let accountId = null;
const createInstance = axios.create;
axios.create = (config) => {
  const instance = createInstance.call(axios, { ...config, baseURL });
  instance.interceptors.request.use((request) => {
    if (accountId) request.headers['account-id'] = accountId;
    return request;
  });
  instance.interceptors.response.use((response) => {
    const userId = response.data?.data?.user?.id;
    if (userId) accountId = createHash('sha256').update(userId).digest('hex');
    return response;
  });
  return instance;
};

const { LibreLinkUpClient } = require('@diakem/libre-link-up-api-client');
const client = LibreLinkUpClient({ username: env('LLU_EMAIL'), password: env('LLU_PASSWORD') });

const readOnce = async () => {
  const { current, history } = await client.read();
  return { value: current?.value, points: history?.length ?? 0 };
};

const mode = process.argv[2];
const first = await readOnce();
if (mode === 'idle') {
  console.log(`ready: ${first.value} mg/dL, ${first.points} points of history`);
  const intervalMs = Number(env('INTERVAL_S', '60')) * 1000;
  setInterval(() => {
    readOnce().catch((error) => console.error(`llu-client-bench: read failed: ${error.message}`));
  }, intervalMs);
} else if (mode === 'cycle') {
  const cycles = Number(env('CYCLES', '200'));
  const cpu = [];
  const wall = [];
  for (let i = 0; i < cycles; ++i) {
    const started = process.hrtime.bigint();
    const before = process.cpuUsage();
    await readOnce();
    const used = process.cpuUsage(before);
    cpu.push((used.user + used.system) / 1000);
    wall.push(Number(process.hrtime.bigint() - started) / 1e6);
  }
  const median = (values) => {
    const sorted = [...values].sort((a, b) => a - b);
    const middle = sorted.length >> 1;
    return sorted.length % 2 ? sorted[middle] : (sorted[middle - 1] + sorted[middle]) / 2;
  };
  console.log(
    `cycles=${cycles} cpu_median_ms=${median(cpu).toFixed(3)} wall_median_ms=${median(wall).toFixed(3)} ` +
      `history_points=${first.points} rss_MiB=${(process.memoryUsage().rss / 1048576).toFixed(1)}`,
  );
} else {
  console.error('usage: llu-client-bench.mjs idle|cycle');
  process.exit(2);
}
