#!/usr/bin/env node
// Validates glTF files with the gltf-validator package and prints one line
// per error; exits 1 when any file has errors, 3 when the package is missing.
const fs = require('fs');
const path = require('path');
const { execSync } = require('child_process');

let validator;
try {
  validator = require('gltf-validator');
} catch (e) {
  try {
    const root = execSync('npm root -g', { stdio: ['ignore', 'pipe', 'ignore'] }).toString().trim();
    validator = require(path.join(root, 'gltf-validator'));
  } catch (e2) {
    console.error('validate-gltf: the gltf-validator package is not installed (scripts/setup.sh installs it)');
    process.exit(3);
  }
}

async function main() {
  let failed = false;
  for (const file of process.argv.slice(2)) {
    const data = new Uint8Array(fs.readFileSync(file));
    const dir = path.dirname(file);
    const report = await validator.validateBytes(data, {
      uri: path.basename(file),
      externalResourceFunction: (uri) =>
        new Promise((resolve, reject) => {
          fs.readFile(path.join(dir, decodeURIComponent(uri)), (err, bytes) =>
            err ? reject(err.toString()) : resolve(new Uint8Array(bytes)));
        }),
    });
    const errors = report.issues.messages.filter((m) => m.severity === 0);
    for (const m of errors) console.log(`${file}: ${m.code} ${m.pointer || ''} ${m.message}`);
    console.log(`${file}: ${report.issues.numErrors} errors, ${report.issues.numWarnings} warnings`);
    if (report.issues.numErrors > 0) failed = true;
  }
  process.exit(failed ? 1 : 0);
}
main().catch((e) => {
  console.error('validate-gltf: ' + e);
  process.exit(2);
});
