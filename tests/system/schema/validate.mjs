// Holds the items schema against the files in good/ and bad/: node validate.mjs
// SCHEMA DIRECTORY, run where ajv is installed.

import { createRequire } from "node:module";
import { readdirSync, readFileSync } from "node:fs";
import { join } from "node:path";

const require = createRequire(join(process.cwd(), "package.json"));
const Ajv = require("ajv/dist/2020").default;

const [schema, directory] = process.argv.slice(2);
const read = (file) => JSON.parse(readFileSync(file, "utf8"));
// Strict but for `minLength` and `pattern` beside the `$ref` with their type.
const ajv = new Ajv({ strictTypes: false, allErrors: true });
const validate = ajv.compile(read(schema));

let failures = 0;
let count = 0;
for (const [kind, expected] of [["good", true], ["bad", false]]) {
  for (const name of readdirSync(join(directory, kind)).sort()) {
    count += 1;
    if (validate(read(join(directory, kind, name))) !== expected) {
      failures += 1;
      console.error(`${kind}/${name}: ${ajv.errorsText(validate.errors)}`);
    }
  }
}
for (const example of process.argv.slice(4)) {
  count += 1;
  if (!validate(read(example))) {
    failures += 1;
    console.error(`${example}: ${ajv.errorsText(validate.errors)}`);
  }
}
console.log(`${count} files, ${failures} judged wrongly`);
process.exit(failures === 0 && count > 20 ? 0 : 1);
