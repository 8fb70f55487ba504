// Findwright as a process for the tests: its settings, its start, its end, and the files that it indexes.
import { spawn } from 'node:child_process';
import { closeSync, mkdirSync, openSync, readFileSync, writeFileSync } from 'node:fs';
import { createServer, connect } from 'node:net';
import { join } from 'node:path';
import { sleep, until } from './devtools.mjs';

const started = new Set();

// How the program names a file of this machine: under Wine by drive Z.
export const program_path = (machine, path) => machine.windows ? `Z:${path.replaceAll('/', '\\')}` : path;

export function port_free() {
  return new Promise((resolve, reject) => {
    const server = createServer().on('error', reject).listen(0, '127.0.0.1', () => {
      const { port } = server.address();
      server.close(() => resolve(port));
    });
  });
}

function _port_answers(port) {
  return new Promise(resolve => {
    const socket = connect(port, '127.0.0.1');
    socket.on('connect', () => resolve(true) || socket.destroy()).on('error', () => resolve(false));
  });
}

// `machine`: the program's command and whether it is a Windows program. `work`: a folder for what it writes.
// `settings`: lines beyond those that each start has. Returns when its server listens.
export async function program_start(machine, work, { port, folders = [], lists = [], settings = [] }) {
  mkdirSync(work, { recursive: true });
  const program = { machine, log: join(work, 'output.txt'), port: port ?? await port_free() };
  program.origin = `http://127.0.0.1:${program.port}`;
  const quoted = paths => paths.map(path => `"${program_path(machine, path).replaceAll('\\', '\\\\')}"`).join(',');
  const config = join(work, 'Findwright.ini');
  writeFileSync(config, [
    '[Findwright]', 'allow_multiple_instances=1', 'auto_include_fixed_volumes=0', 'auto_include_fixed_refs_volumes=0',
    `folders=${quoted(folders)}`, `filelists=${quoted(lists)}`,
    'http_server_enabled=2', `http_server_port=${program.port}`, 'http_server_bindings=127.0.0.1',
    'http_server_logging_enabled=0', `http_server_home=${program_path(machine, join(work, 'home'))}`, ...settings, '',
  ].join('\n'));
  const output = openSync(program.log, 'a');
  program.child = spawn(machine.command[0], [
    ...machine.command.slice(1), '-config', program_path(machine, config), '-db', program_path(machine, join(work, 'Findwright.db')),
  ], { stdio: ['ignore', output, output] });
  closeSync(output);
  program.ended = new Promise(resolve => program.child.on('exit', (code, signal) => resolve({ code, signal }))
    .on('error', error => resolve({ code: error.message })));
  program.ended.then(end => (program.end = end));
  started.add(program);
  // Wine makes its prefix at the first start.
  await until('the server listens', async () => program.end || await _port_answers(program.port), 120000);
  if (program.end)
    throw new Error(`the program has ended by itself:\n${program_output(program)}`);
  return program;
}

export const program_output = program => readFileSync(program.log, 'utf8');

// An end as the user brings it about; what the sanitizers had to say makes it fail.
export async function program_stop(program) {
  if (program.end) {
    started.delete(program);
    throw new Error(`the program has ended by itself (${JSON.stringify(program.end)}):\n${program_output(program)}`);
  }
  program.child.kill(program.machine.windows ? 'SIGKILL' : 'SIGTERM');
  const end = await Promise.race([program.ended, sleep(30000)]);
  if (!end)
    throw new Error('the program does not end');
  started.delete(program);
  if (!program.machine.windows && end.code !== 0)
    throw new Error(`the program ended with ${end.code ?? end.signal}:\n${program_output(program)}`);
}

// Without saving and without saying good-bye.
export async function program_kill(program) {
  started.delete(program);
  program.child.kill('SIGKILL');
  await program.ended;
}

export function programs_kill() {
  for (const program of started)
    program.child.kill('SIGKILL');
}
