'use strict';
// The picture storage peer of the tests: an S3-compatible store that checks
// request signatures, with the bucket "pss" already made.
//
// Reads one line of JSON from standard input:
//   {"address", "port", "directory", "accessKey", "secretKey", "journal"}
// then prints "READY <port>" once it listens. Unsigned requests are refused
// with 403, so the store accepts only what the given keys signed. Every
// request is appended to the journal file as one line of JSON: method, url,
// whether it was signed, its x-amz-content-sha256 and Content-Type headers
// (null when absent), its Content-Length, the client's port (one port for
// requests on one kept-alive connection) and the status answered.
//
// The peer ends when its standard input closes (the test process ended, in
// any way) or when its parent process is gone.

const fs = require('fs');
const http = require('http');

const S3rver = require('@20minutes/s3rver');
const AWSAccount = require('@20minutes/s3rver/lib/models/account');

function readConfig() {
  return new Promise((resolve, reject) => {
    let buffered = '';
    const onData = (chunk) => {
      buffered += chunk;
      const newline = buffered.indexOf('\n');
      if (newline < 0) return;
      process.stdin.off('data', onData);
      try {
        resolve(JSON.parse(buffered.slice(0, newline)));
      } catch (err) {
        reject(err);
      }
    };
    process.stdin.setEncoding('utf8');
    process.stdin.on('data', onData);
    process.stdin.on('end', () => process.exit(0));
  });
}

async function main() {
  const config = await readConfig();
  const parent = process.ppid;
  setInterval(() => {
    if (process.ppid !== parent) process.exit(0);
  }, 500).unref();
  process.stdin.resume();  // keep reading so that its end is seen

  AWSAccount.DUMMY_ACCOUNT.revokeAccessKey('S3RVER');
  AWSAccount.DUMMY_ACCOUNT.createKeyPair(config.accessKey, config.secretKey);

  const store = new S3rver({
    silent: true,
    directory: config.directory,
    vhostBuckets: false,
    configureBuckets: [{ name: 'pss' }],
  });
  await store.configureBuckets();
  const handle = store.callback();

  const server = http.createServer((req, res) => {
    const entry = {
      method: req.method,
      url: req.url,
      signed: /^AWS4-HMAC-SHA256 /.test(req.headers.authorization || ''),
      sha256: req.headers['x-amz-content-sha256'] ?? null,
      contentType: req.headers['content-type'] ?? null,
      length: Number(req.headers['content-length'] || 0),
      remotePort: req.socket.remotePort,
      status: 0,
    };
    // Journaled before the answer leaves, so a client that has its answer
    // finds its request in the journal.
    const writeHead = res.writeHead;
    res.writeHead = function journaled(status, ...rest) {
      entry.status = status;
      fs.appendFileSync(config.journal, JSON.stringify(entry) + '\n');
      return writeHead.call(this, status, ...rest);
    };
    if (!entry.signed) {
      res.statusCode = 403;
      res.end();
      return;
    }
    handle(req, res);
  });
  server.keepAliveTimeout = 30000;
  server.listen(config.port, config.address, () => {
    process.stdout.write(`READY ${server.address().port}\n`);
  });
  server.on('error', (err) => {
    process.stderr.write(`peer: ${err.message}\n`);
    process.exit(2);
  });
}

main().catch((err) => {
  process.stderr.write(`peer: ${err.stack || err}\n`);
  process.exit(2);
});

