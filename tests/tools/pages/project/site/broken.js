throw new Error('сломано');
