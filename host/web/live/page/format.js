// Figures as texts.

export function fixed(value, digits, unit = "") {
  return value === null || value === undefined ? "-" : `${value.toFixed(digits)}${unit}`;
}

/** At most seven digits, without zeros behind them: 5000, 0.1, 33.37. */
export function short(value) {
  return value === null || value === undefined ? "-" : String(Number(value.toPrecision(7)));
}

export function percent(share) {
  const value = share * 100;
  return `${value === 0 || value >= 10 ? value.toFixed(0) : value.toPrecision(2)} %`;
}

export function milliseconds(us) {
  return us === null || us === undefined ? "-" : `${(us / 1000).toFixed(us < 100000 ? 1 : 0)} ms`;
}
