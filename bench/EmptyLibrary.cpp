// SPDX-License-Identifier: Apache-2.0

// A library with the module's dependencies and nothing in it: what loading them alone costs.
