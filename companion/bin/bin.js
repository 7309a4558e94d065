#!/usr/bin/env node
// The `kd` command.
import { main } from '../src/kd/main.mjs';

process.exitCode = await main(process.argv.slice(2), process.env);
